// "vex cloud": the settings of the cache in front of cloud storage.
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string>

#include "command.h"
#include "json.h"

namespace tool {
namespace {

int noFile() {
    return fail(
        "there is no usable cloud configuration: check ConfigFilePath in the registry, which "
        "ZQREGISTRY names");
}

int show() {
    std::string path;
    CloudConfig config;
    if (CloudConfig::get_cloud_config_file(path) != 0 ||
        config.initFromConfigFile(path.c_str()) != 0)
        return noFile();
    std::printf("{\"file\":%s,\"enabled\":%s,\"storage_path\":%s,\"cache_size_gb\":%" PRIu32
                ",\"max_file_size_mb\":%" PRIu32 "}\n",
                jsonString(path).c_str(), config.item.enabled ? "true" : "false",
                jsonString(config.item.StoragePath).c_str(), config.item.CacheSizeGB,
                config.item.MaxFileSizeMB);
    return kSuccess;
}

int tell(int result) {
    if (result < 0) return noFile();
    std::printf(result == 2 ? "changed\n" : "as it was\n");
    return kSuccess;
}

}  // namespace

int runCloud(int argc, char **argv) {
    const auto is = [&](const char *action, int arguments) {
        return argc == arguments && std::strcmp(argv[1], action) == 0;
    };
    if (is("show", 2)) return show();
    bool enable = is("enable", 2);
    if (enable || is("disable", 2)) return tell(CloudConfig::UpdateEnabled(enable));
    if (!is("cache-size", 3))
        return usageError("'cloud' needs show, enable, disable or cache-size GB");
    std::string size = argv[2];
    if (size.empty() || size.find_first_not_of("0123456789") != std::string::npos)
        return usageError("'%s' is no number of gigabytes", argv[2]);
    return tell(CloudConfig::UpdateCachesize(size));
}

}  // namespace tool
