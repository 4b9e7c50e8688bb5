// The cloud configuration's file: what its two halves, settings and registry, know of it.
#ifndef VEX_CLIENTS_CLOUD_FILE_H
#define VEX_CLIENTS_CLOUD_FILE_H

#include <jansson.h>

#include <memory>

namespace vex::clients {

inline constexpr int kJsonCode = 32;  // of every message about the file's content
inline constexpr char kSettings[] = "settings";

struct JsonDecref {
    void operator()(json_t *value) const { json_decref(value); }
};
using Json = std::unique_ptr<json_t, JsonDecref>;

/// What the file holds; empty with the reason in @p error.
Json loadJson(const char *path, json_error_t *error);

}  // namespace vex::clients

#endif
