// Text as JSON, for the commands that print one object per line.
#ifndef VEX_TOOL_JSON_H
#define VEX_TOOL_JSON_H

#include <string>

namespace tool {

/// The text as a quoted JSON string. Bytes that are no UTF-8, which file names may hold, become
/// U+FFFD each.
std::string jsonString(const std::string &text);

}  // namespace tool

#endif
