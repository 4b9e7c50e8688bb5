// The command line and the vault's ini file, which one table of options describes, and the log.
#include <limits.h>
#include <unistd.h>

#include <bit>

#include "commands.h"

namespace vault {
namespace {

constexpr char kSection[] = "vault";
constexpr uint64_t kLeastChunk = 4096, kMostChunk = uint64_t{1} << 20;

struct Options {
    char *ini = nullptr, *key_file = nullptr, *cipher = nullptr;
    uint64_t chunk_size = 0;
    uint32_t keep = 0;
    bool one_file_system = false;

    opt_option records[6] = {
        option("ini", 0, OPT_TYPE_INI_FILE, &ini, nullptr, nullptr,
               "settings, vault.ini in the vault by default"),
        option("key-file", 'k', OPT_TYPE_PATH, &key_file, "KeyFile", "",
               "key that everything is encrypted with, the vault's name and .key by default"),
        option("cipher", 0, OPT_TYPE_STRING, &cipher, nullptr, "AES-256-CTR",
               "cipher of a vault that is made"),
        option("chunk-size", 0, OPT_TYPE_SIZE64, &chunk_size, "ChunkSize", "64KiB",
               "average size of a chunk, a power of two"),
        option("keep", 0, OPT_TYPE_NUMBER32, &keep, "Keep", "0",
               "snapshots that prune leaves, 0 for all"),
        option("one-file-system", 'x', OPT_TYPE_FLAG_ON, &one_file_system, nullptr, nullptr,
               "leave out what is mounted below a source"),
    };
    opt_option *table[7] = {&records[0], &records[1], &records[2], &records[3],
                            &records[4], &records[5], nullptr};

    Options() = default;
    Options(const Options &) = delete;
    Options &operator=(const Options &) = delete;
    ~Options() { opt_free(table); }

    static opt_option option(const char *name, char letter, int type, void *value, const char *key,
                             const char *standard, const char *help) {
        return {help, nullptr, letter,   name,
                type, nullptr, standard, key == nullptr ? nullptr : kSection,
                key,  0,       value};
    }
};

/// Logs beside the vault unless its ini file names another directory.
void setUpLog(const std::string &ini, const std::string &directory) {
    char log[PATH_MAX];
    int flags = VEX_LOG_PRESET_LONG | VEX_LOG_DATE, retention = 0;
    const std::string name = std::string(vex_path_basename(directory.c_str())) + ".log";
    if (vex_access(ini.c_str(), R_OK) == 0) {
        flags = vexLogLoadA(ini.c_str(), kSection, "LogPath", log, sizeof log, name.c_str(),
                            &retention);
    } else {
        vex_strcpy(log, sizeof log, (directory + ".log").c_str());
    }
    check(flags >= 0, "%s does not say where to log", ini.c_str());
    (void)vexLogSet(log, flags | VEX_LOG_STDERR_SEVERE, 0);
    if (retention > 0) (void)logFilePruneA(log, retention);
}

}  // namespace

Settings readSettings(int argc, char **argv) {
    Options options;
    char directory[PATH_MAX], key_file[PATH_MAX];
    int first = opt_parse(options.table, argc, argv);
    done(first >= 0);
    check(first < argc && vex_path_resolve(argv[first], directory, sizeof directory) >= 0,
          "name the vault's directory");
    const std::string ini =
        options.ini != nullptr ? options.ini : std::string(directory) + "/vault.ini";
    setUpLog(ini, directory);
    if (options.ini == nullptr && vex_access(ini.c_str(), R_OK) == 0) {
        opt_free(options.table);
        options.records[0].default_value = ini.c_str();
        first = opt_parse(options.table, argc, argv);
        check(first >= 0, "%s cannot be used: see above", ini.c_str());
    }
    check(std::has_single_bit(options.chunk_size) && options.chunk_size >= kLeastChunk &&
              options.chunk_size <= kMostChunk,
          "the chunk size must be a power of two from 4 KiB to 1 MiB");
    const std::string key =
        *options.key_file != '\0' ? options.key_file : std::string(directory) + ".key";
    check(vex_path_resolve(key.c_str(), key_file, sizeof key_file) >= 0, "%s: %m", key.c_str());
    return {
        directory,    {argv + first + 1, argv + argc}, key_file, options.cipher, options.chunk_size,
        options.keep, options.one_file_system};
}

void writeSettings(const Settings &settings) {
    const std::string path = settings.directory + "/vault.ini";
    const char *const ini = path.c_str();
    char size[32];
    const auto save = [ini](const char *key, const char *value) {
        done(InifileSaveValueA(kSection, key, value, ini) == 0);
    };
    save("KeyFile", settings.key_file.c_str());
    save("ChunkSize", sizetostr(size, sizeof size, settings.chunk_size));
    save("Keep", std::to_string(settings.keep).c_str());
    save("Logging", "long,date");
    save("LogPath", parentOf(settings.directory).c_str());
    done(InifileSaveCommentA(kSection, "KeyFile",
                             "; without this file nothing can be restored: keep copies of it",
                             ini) == 0);
    done(InifileSaveA(ini) == 0);
}

void printOptions() {
    Options options;
    (void)opt_fprintf_help(stdout, "vault COMMAND", 0, nullptr, options.table, "DIR [ARGUMENT]...");
}

}  // namespace vault
