/**
 * @file cloud_config.h
 * @ingroup clients
 * The settings of the local cache in front of cloud storage: a JSON file, which the product's
 * registry names under the key "ConfigFilePath". See docs/formats/cloud_config.md.
 *
 * Failures are logged once; those of the JSON text carry the code 32.
 *
 * @threads any thread, each with objects of its own. Two processes that change the file at the same
 * moment can lose one change; neither can damage it.
 */
#ifndef VEX_CLOUD_CONFIG_H
#define VEX_CLOUD_CONFIG_H

#ifdef __cplusplus

#include <cstdint>
#include <string>

#include <vex/export.h>

struct json_t;

/** The member "settings" of the file. */
struct VEX_API CloudConfigItem {
    bool enabled = false;                 /**< whether the cache is used */
    std::string StoragePath;              /**< directory of the cache */
    uint32_t CacheSizeGB = 0;             /**< room that the cache may take */
    uint32_t MaxFileSizeMB = 0;           /**< size up to which files are cached */
    uint32_t MaxDCUploadBatchNumber = 32; /**< read, never written */
    bool OutputSegmentsHistory = false;   /**< read, never written */

    /** Reads the members of an object. @return 0; -1, logged, and nothing changed, at the first
     * that is missing or of another type. */
    int loadFromJson(json_t *object);
    /** @return a new object with the first four members, the caller's reference; NULL, logged. */
    json_t *jsonObject() const;
};

/** The file as a whole: where it is and what it says. */
class VEX_API CloudConfig {
public:
    char path[4096] = ""; /**< the file that was loaded, and is saved to */
    CloudConfigItem item; /**< its settings */

    /** Loads a file and remembers its path. @return 0; -1, with a trace only when it is absent. */
    int initFromConfigFile(const char *path);
    /** Reads the member "settings" of an object. @return 0 or -1. */
    int loadFromJsonObject(json_t *root);
    /**
     * Writes the file anew, durably: temporary file, sync, rename, directory sync. Members that
     * jsonObject leaves out are gone then.
     *
     * @return 0; -1 with errno, and the file as it was unless only the last sync failed.
     */
    int saveConfigFile();

    /**
     * Sets up the file: records its path in the registry, and writes it with the default settings
     * unless it is there.
     *
     * @param registry     NULL for what ZQREGISTRY names, or "/etc/zqregistry.cfg".
     * @param config_path  NULL or empty for the path that is recorded already.
     * @return 0 or -1.
     */
    static int InitCloudCfgFile(const char *registry, const char *config_path);
    /** Changes one setting of the registered file; changes by several processes take turns.
     * @return 2 changed; 1 it was so already, the file is untouched; -1. */
    static int UpdateEnabled(bool &enabled);
    /** Changes CacheSizeGB, as UpdateEnabled does. @param size  decimal digits, up to 4294967295;
     * else -1 with EINVAL or ERANGE. */
    static int UpdateCachesize(std::string &size);
    /** Reads both settings of the registered file. @return 0 or -1, the values untouched. */
    static int getCloudCfgFile(bool &enabled, std::string &cache_size);
    /** The same with the size as a number. */
    static int getCloudCfgFile(bool &enabled, uint32_t &cache_size);
    /** The path of the registered file. @return 0 when it is there, else -1, traced only. */
    static int get_cloud_config_file(std::string &path_out);
    /** Whether the registered file enables the cache; false when there is none. */
    static bool is_cloud_direct_enabled();
};

#endif

#endif
