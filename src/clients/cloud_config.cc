#include <errno.h>
#include <jansson.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <utility>

#include <vex/cloud_config.h>
#include <vex/log.h>

#include "base/unique_fd.h"
#include "base/unique_ptr.h"
#include "clients/cloud_file.h"
#include "io/replacement_file.h"
#include "log/report.h"

using vex::clients::Json;
using vex::clients::kJsonCode;
using vex::clients::kSettings;

namespace {

int mistyped(const char *name, const char *type) {
    return VEX_FAIL_AS("loadFromJson", kJsonCode, EINVAL, -1, "%s is not %s.", name, type);
}

bool isUint32(const json_t *value) {
    return json_is_integer(value) && json_integer_value(value) >= 0 &&
           json_integer_value(value) <= UINT32_MAX;
}

uint32_t asUint32(const json_t *value) {
    return static_cast<uint32_t>(json_integer_value(value));
}

}  // namespace

Json vex::clients::loadJson(const char *path, json_error_t *error) {
    // jansson's own opening of a file would leave it open in programs that another thread starts
    const UniqueFile file(fopen(path, "rbe"));
    if (file) return Json(json_loadf(file.get(), 0, error));
    *error = {};
    error->line = -1;
    (void)snprintf(error->text, sizeof error->text, "unable to open: %s", strerrordesc_np(errno));
    return nullptr;
}

int CloudConfigItem::loadFromJson(json_t *object) {
    CloudConfigItem read;
    const auto member = [&](const char *name) { return json_object_get(object, name); };
    const json_t *const is_enabled = member("enabled");
    const json_t *const storage = member("StoragePath");
    const json_t *const batch = member("MaxDCUploadBatchNumber");
    if (!json_is_boolean(is_enabled)) return mistyped("enabled", "bool");
    if (!json_is_string(storage)) return mistyped("StoragePath", "a string");
    if (!isUint32(member("CacheSizeGB"))) return mistyped("CacheSizeGB", "an integer");
    if (!isUint32(member("MaxFileSizeMB"))) return mistyped("MaxFileSizeMB", "an integer");
    if (batch != nullptr && !isUint32(batch))
        return mistyped("MaxDCUploadBatchNumber", "an integer");
    read.enabled = json_is_true(is_enabled);
    read.CacheSizeGB = asUint32(member("CacheSizeGB"));
    read.MaxFileSizeMB = asUint32(member("MaxFileSizeMB"));
    if (batch != nullptr) read.MaxDCUploadBatchNumber = asUint32(batch);
    read.OutputSegmentsHistory = json_is_true(member("OutputSegmentsHistory"));
    return vex::guard(__func__, -1, [&] {
        read.StoragePath = json_string_value(storage);
        *this = std::move(read);
        return 0;
    });
}

json_t *CloudConfigItem::jsonObject() const {
    Json object(json_object());
    if (json_object_set_new(object.get(), "enabled", json_boolean(enabled)) == 0 &&
        json_object_set_new(object.get(), "StoragePath", json_string(StoragePath.c_str())) == 0 &&
        json_object_set_new(object.get(), "CacheSizeGB", json_integer(CacheSizeGB)) == 0 &&
        json_object_set_new(object.get(), "MaxFileSizeMB", json_integer(MaxFileSizeMB)) == 0)
        return object.release();
    return VEX_FAIL_AS("jsonObject", kJsonCode, ENOMEM, nullptr,
                       "No more memory to alloc json object");
}

int CloudConfig::initFromConfigFile(const char *config_path) {
    if (config_path == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    if (strlen(config_path) >= sizeof path)
        return VEX_FAIL(ENAMETOOLONG, -1, "path too long: %s", config_path);
    if (access(config_path, F_OK) != 0) {
        if (TraceOn()) __Trace("%s doesn't exist", config_path);
        errno = ENOENT;
        return -1;
    }
    json_error_t error;
    const Json root = vex::clients::loadJson(config_path, &error);
    if (root == nullptr)
        return VEX_FAIL_AS(__func__, kJsonCode, EINVAL, -1,
                           "Load JSON file %s error: on line %d: %s.", config_path, error.line,
                           error.text);
    if (loadFromJsonObject(root.get()) != 0) return -1;
    memmove(path, config_path, strlen(config_path) + 1);  // it may be this path itself
    return 0;
}

int CloudConfig::loadFromJsonObject(json_t *root) {
    if (!json_is_object(root))
        return VEX_FAIL_AS(__func__, kJsonCode, EINVAL, -1, "it is not an json object.");
    if (item.loadFromJson(json_object_get(root, kSettings)) == 0) return 0;
    return VEX_FAIL_AS(__func__, kJsonCode, EINVAL, -1, "load json object failed.");
}

int CloudConfig::saveConfigFile() {
    const Json root(json_object());
    json_t *const settings = item.jsonObject();
    if (settings == nullptr) return -1;
    const bool built = json_object_set_new(root.get(), kSettings, settings) == 0;
    const vex::UniqueMalloc<char> text(built ? json_dumps(root.get(), JSON_INDENT(4)) : nullptr);
    if (text == nullptr)
        return VEX_FAIL_AS(__func__, kJsonCode, ENOMEM, -1, "failed to write config file(%s)",
                           path);
    return vex::guard(__func__, -1, [&] {
        if (vex::io::replaceFile(path, std::string(text.get()) + "\n", 0644)) return 0;
        return VEX_FAIL_AS("saveConfigFile", errno, errno, -1, "failed to write config file(%s)",
                           path);
    });
}
