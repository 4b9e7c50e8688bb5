#ifndef VEX_CLIENTS_JSON_FILE_H
#define VEX_CLIENTS_JSON_FILE_H

#include <jansson.h>

namespace vex::clients {

/// What a JSON file holds, the caller's reference; nullptr with the reason in @p error.
json_t *loadJson(const char *path, json_error_t *error);

}  // namespace vex::clients

#endif
