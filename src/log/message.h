#ifndef VEX_LOG_MESSAGE_H
#define VEX_LOG_MESSAGE_H

#include <stdarg.h>

#include <vex/export.h>

namespace vex::log {

/// Formats one message and sends it to every output that wants it; keeps errno.
void writeMessage(int code, int level, const char *format, va_list args) VEX_PRINTF(3, 0);

}  // namespace vex::log

#endif
