// Finding the cloud configuration by the product's registry, and changing single settings of it.
#include <errno.h>
#include <limits.h>
#include <unistd.h>

#include <charconv>
#include <cstring>
#include <memory>
#include <string_view>

#include <vex/cloud_config.h>
#include <vex/inifile.h>
#include <vex/log.h>

#include "base/lock_directory.h"
#include "clients/cloud_file.h"
#include "config/registry.h"
#include "log/report.h"

namespace {

constexpr char kSection[] = "CloudConfig", kKey[] = "ConfigFilePath";
constexpr int kNoFileCode = 4;

/// The registry, read afresh and not kept: it is the system's and may change, and a default that
/// the store plants for an absent key must never reach it.
class Registry {
public:
    explicit Registry(const char *path) : path_(path) { release(); }
    ~Registry() { release(); }
    Registry(const Registry &) = delete;
    Registry &operator=(const Registry &) = delete;

    bool there() const { return access(path_, F_OK) == 0; }

    /// The recorded path, from our section or any other; empty when there is none.
    std::string configPath() const {
        if (std::string value = valueIn(kSection); !value.empty()) return value;
        if (std::string value = valueIn("__dummy__section__"); !value.empty()) return value;
        char probe[1];
        const int size = InifileGetValueA(nullptr, nullptr, probe, sizeof probe, nullptr, path_);
        std::string names(static_cast<size_t>(size > 0 ? size : 0) + 1, '\0');
        (void)InifileGetValueA(nullptr, nullptr, names.data(), size + 1, nullptr, path_);
        for (const char *name = names.c_str(); *name != '\0'; name += strlen(name) + 1)
            if (std::string value = valueIn(name); !value.empty()) return value;
        return {};
    }

    bool record(const char *config_path) {
        return InifileSaveValueA(kSection, kKey, config_path, path_) == 0 &&
               InifileSaveA(path_) == 0;
    }

private:
    std::string valueIn(const char *section) const {
        char value[PATH_MAX];
        if (InifileValueExistsA(section, kKey, path_) != 0) return {};
        const int size = InifileGetValueA(section, kKey, value, sizeof value, "", path_);
        return size > 0 && size <= PATH_MAX ? value : "";
    }
    void release() { (void)InifileReleaseA(path_); }  // it need not be loaded

    const char *path_;
};

/// Where the registered file is; -1 after reporting under @p who.
int findRegistered(const char *who, std::string *path) {
    if (CloudConfig::get_cloud_config_file(*path) == 0) return 0;
    return VEX_FAIL_AS(who, kNoFileCode, ENOENT, -1, "Failed to get config file");
}

int loadFrom(const char *who, const std::string &path, CloudConfig *config) {
    if (config->initFromConfigFile(path.c_str()) == 0) return 0;
    return VEX_FAIL_AS(who, errno, errno, -1, "Failed to initFromConfigFile");
}

/// Stores one setting; 2, 1 when it is so already, or -1.
template <typename T>
int update(const char *who, T CloudConfigItem::*member, T value) {
    std::string path;
    if (findRegistered(who, &path) != 0) return -1;
    // from reading to saving nobody else changes the file; in a directory that cannot be locked
    // nothing can be saved durably either, and that is told then
    const vex::UniqueFd turn = vex::lockDirectory(vex::directoryToLock(path.c_str()));
    auto config = std::make_unique<CloudConfig>();
    if (loadFrom(who, path, config.get()) != 0) return -1;
    if (config->item.*member == value) return 1;
    config->item.*member = value;
    if (config->saveConfigFile() == 0) return 2;
    ErrorA(errno, "failed to save cfg file");
    return -1;
}

}  // namespace

int CloudConfig::get_cloud_config_file(std::string &path_out) {
    return vex::guard(__func__, -1, [&] {
        errno = ENOENT;
        const char *const registry_path = vex::config::registryPath();
        const Registry registry(registry_path);
        if (!registry.there()) {
            if (TraceOn()) __Trace("%s doesn't exist", registry_path);
            errno = ENOENT;
            return -1;
        }
        const std::string file = registry.configPath();
        if (!file.empty() && access(file.c_str(), F_OK) == 0) {
            path_out = file;
            return 0;
        }
        if (TraceOn()) __Trace("%s of %s doesn't exist", file.c_str(), registry_path);
        errno = ENOENT;
        return -1;
    });
}

int CloudConfig::InitCloudCfgFile(const char *registry_path, const char *config_path) {
    return vex::guard(__func__, -1, [&] {
        constexpr char kWho[] = "InitCloudCfgFile";
        if (registry_path == nullptr) registry_path = vex::config::registryPath();
        Registry registry(registry_path);
        if (config_path != nullptr && *config_path != '\0' && !registry.record(config_path))
            return -1;  // reported
        const std::string file = registry.configPath();
        if (file.empty()) {
            if (TraceOn()) __Trace("%s of %s doesn't exist", kKey, registry_path);
            errno = ENOENT;
            return -1;
        }
        if (access(file.c_str(), F_OK) == 0) return 0;
        auto config = std::make_unique<CloudConfig>();
        if (file.copy(config->path, sizeof config->path - 1) == file.size() &&
            config->saveConfigFile() == 0)
            return 0;
        return VEX_FAIL_AS(kWho, errno, errno, -1, "Failed to write config file");
    });
}

int CloudConfig::UpdateEnabled(bool &enabled) {
    return vex::guard(__func__, -1,
                      [&] { return update("UpdateEnabled", &CloudConfigItem::enabled, enabled); });
}

int CloudConfig::UpdateCachesize(std::string &size) {
    uint32_t value = 0;
    const char *const end = size.data() + size.size();
    const auto parsed = std::from_chars(size.data(), end, value);
    if (parsed.ec == std::errc::result_out_of_range)
        return VEX_FAIL(ERANGE, -1, "%s is out of range", size.c_str());
    if (parsed.ec != std::errc{} || parsed.ptr != end)
        return VEX_FAIL(EINVAL, -1, "%s is no number", size.c_str());
    return vex::guard(__func__, -1, [&] {
        return update("UpdateCachesize", &CloudConfigItem::CacheSizeGB, value);
    });
}

int CloudConfig::getCloudCfgFile(bool &enabled, uint32_t &cache_size) {
    return vex::guard(__func__, -1, [&] {
        constexpr char kWho[] = "getCloudCfgFile";
        std::string path;
        auto config = std::make_unique<CloudConfig>();
        if (findRegistered(kWho, &path) != 0 || loadFrom(kWho, path, config.get()) != 0) return -1;
        enabled = config->item.enabled;
        cache_size = config->item.CacheSizeGB;
        return 0;
    });
}

int CloudConfig::getCloudCfgFile(bool &enabled, std::string &cache_size) {
    uint32_t size = 0;
    if (getCloudCfgFile(enabled, size) != 0) return -1;
    cache_size = std::to_string(size);
    return 0;
}

bool CloudConfig::is_cloud_direct_enabled() {
    return vex::guard(__func__, false, [&] {
        std::string file;
        if (get_cloud_config_file(file) != 0) {
            InfoA(-1, "Config file for cloud direct does not exist");
            return false;
        }
        json_error_t error;
        const vex::clients::Json root = vex::clients::loadJson(file.c_str(), &error);
        const json_t *const settings = json_object_get(root.get(), vex::clients::kSettings);
        if (!json_is_object(settings))
            return VEX_FAIL_AS("is_cloud_direct_enabled", vex::clients::kJsonCode, EINVAL, false,
                               "settings is not an json object.");
        const bool enabled = json_is_true(json_object_get(settings, "enabled"));
        if (TraceOn())
            __Trace("%s get cloud direct option : %d ", "is_cloud_direct_enabled", enabled ? 1 : 0);
        return enabled;
    });
}
