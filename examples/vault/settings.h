// What the command line and the vault's ini file say. One table of options describes both.
#ifndef VAULT_SETTINGS_H
#define VAULT_SETTINGS_H

#include <bit>

#include "common.h"

namespace vault {

struct Settings : Unique {
    ~Settings() { opt_free(table); }

    std::string directory;               ///< the vault, absolute
    std::vector<std::string> arguments;  ///< what follows the options
    std::string ini, key;                ///< files beside the vault unless told otherwise
    char *ini_file = nullptr, *key_file = nullptr, *cipher = nullptr;
    uint64_t chunk_size = 0;  ///< bytes on average
    uint32_t keep = 0;        ///< snapshots that prune leaves, 0 for all
    bool one_file_system = false;

    opt_option records[6] = {
        {"settings, the vault's name and .ini by default", nullptr, 0, "ini", OPT_TYPE_INI_FILE,
         nullptr, nullptr, nullptr, nullptr, 0, &ini_file},
        {"key that everything is encrypted with, the vault's name and .key by default", nullptr,
         'k', "key-file", OPT_TYPE_PATH, nullptr, "", "vault", "KeyFile", 0, &key_file},
        {"cipher of a vault that is made", nullptr, 0, "cipher", OPT_TYPE_STRING, nullptr,
         "AES-256-CTR", nullptr, nullptr, 0, &cipher},
        {"average size of a chunk, a power of two", nullptr, 0, "chunk-size", OPT_TYPE_SIZE64,
         nullptr, "64KiB", "vault", "ChunkSize", 0, &chunk_size},
        {"snapshots that prune leaves, 0 for all", nullptr, 0, "keep", OPT_TYPE_NUMBER32, nullptr,
         "0", "vault", "Keep", 0, &keep},
        {"leave out what is mounted below a source", nullptr, 'x', "one-file-system",
         OPT_TYPE_FLAG_ON, nullptr, nullptr, nullptr, nullptr, 0, &one_file_system},
    };
    opt_option *table[7] = {&records[0], &records[1], &records[2], &records[3],
                            &records[4], &records[5], nullptr};

    /// Reads both and sets up the log. @p argv: command, vault, options, arguments.
    void read(int argc, char **argv) {
        constexpr uint64_t kLeastChunk = 4096, kMostChunk = uint64_t{1} << 20;
        check(argc > 1 && *argv[1] != '-', "name the vault's directory");
        directory = absolute(argv[1]);
        ini = directory + ".ini";
        if (vex_access(ini.c_str(), F_OK) == 0) records[0].default_value = ini.c_str();
        const int first = opt_parse(table, argc - 1, argv + 1);
        done(first >= 0);
        arguments.assign(argv + 1 + first, argv + argc);
        // the store serves defaults for a missing file; a name that was given must be right
        check(ini_file == nullptr || vex_access(ini_file, R_OK) == 0, "no settings in %s: %m",
              ini_file);
        setUpLog(ini_file == nullptr ? ini : ini_file);
        key = absolute(*key_file == '\0' ? directory + ".key" : key_file);
        check(std::has_single_bit(chunk_size) && chunk_size >= kLeastChunk &&
                  chunk_size <= kMostChunk,
              "the chunk size must be a power of two from 4 KiB to 1 MiB");
    }

    /// Writes the ini file of a new vault.
    void write() const {
        char size[32];
        const std::pair<const char *, std::string> values[] = {
            {"KeyFile", key},
            {"ChunkSize", sizetostr(size, sizeof size, chunk_size)},
            {"Keep", std::to_string(keep)},
            {"Logging", "long,date"},
            {"LogPath", parentOf(directory)}};
        for (const auto &[name, value] : values)
            done(InifileSaveValueA("vault", name, value.c_str(), ini.c_str()) == 0);
        done(InifileSaveA(ini.c_str()) == 0);
    }

    static std::string absolute(const std::string &path) {
        char resolved[PATH_MAX];
        check(vex_path_resolve(path.c_str(), resolved, sizeof resolved) >= 0, "%s: %m",
              path.c_str());
        return resolved;
    }

private:
    /// Logs beside the vault unless its ini file names another directory.
    void setUpLog(const std::string &file) const {
        char path[PATH_MAX];
        const std::string log = directory + ".log";
        int flags = VEX_LOG_PRESET_LONG | VEX_LOG_DATE, retention = 0;
        vex_strcpy(path, sizeof path, log.c_str());
        if (vex_access(file.c_str(), R_OK) == 0)
            flags = vexLogLoadA(file.c_str(), "vault", "LogPath", path, sizeof path,
                                vex_path_basename(log.c_str()), &retention);
        check(flags >= 0, "%s does not say where to log", file.c_str());
        (void)vexLogSet(path, flags | VEX_LOG_STDERR_SEVERE, 0);
        if (retention > 0) (void)logFilePruneA(path, retention);
    }
};

}  // namespace vault

#endif
