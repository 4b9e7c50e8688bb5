// config [--ini FILE] [--name TEXT] [--cache SIZE] [--load PERCENT] [--verbose] [--save]: shows the
// settings that count: the command line's, else the ini file's, else the defaults. --save stores
// them in the file, whose other lines and comments stay.
#include <cinttypes>
#include <cstdio>

#include <vex/frame.h>
#include <vex/inifile.h>
#include <vex/options.h>

namespace {

struct Settings {
    char *ini = nullptr;
    char *name = nullptr;
    uint64_t cache = 0;
    bool verbose = false;
    bool save = false;
    double load = 0;
};

const opt_group kGeneral = {"General"};

/// An option of the section [Service]; without a key it is the command line's alone.
opt_option option(char letter, const char *name, const char *help, int type, void *value,
                  const char *standard = nullptr, const char *key = nullptr) {
    return {help, &kGeneral, letter,   name,
            type, nullptr,   standard, key != nullptr ? "Service" : nullptr,
            key,  0,         value};
}

bool readLoad(const char *ini, double *load) {
    if (ini == nullptr) return true;
    // a percentage is no option type: it is read from the store that the options were read from
    if (InifileGetPercentageA("Service", "Load", load, 80, ini) != -1) return true;
    InifileErrorA(ini, "Service", "Load", "", "expected a percentage from 1% to 100%");
    return false;
}

bool save(const Settings &settings) {
    return settings.ini != nullptr &&
           InifileSaveValueA("Service", "Name", settings.name, settings.ini) == 0 &&
           InifileSaveSizeA("Service", "Cache", settings.cache, settings.ini) == 0 &&
           InifileSaveA(settings.ini) == 0;  // the old file stays as FILE.bak
}

}  // namespace

int main(int argc, char **argv) {
    const zqutil::LibAutoInit library("config");
    Settings settings;
    opt_option ini = option('i', "ini", "configuration file", OPT_TYPE_INI_FILE, &settings.ini);
    opt_option name =
        option('n', "name", "name of the service", OPT_TYPE_STRING, &settings.name, "demo", "Name");
    opt_option cache =
        option('c', "cache", "bytes of cache", OPT_TYPE_SIZE64, &settings.cache, "64MiB", "Cache");
    opt_option verbose = option('v', "verbose", nullptr, OPT_TYPE_FLAG_ON, &settings.verbose);
    opt_option store = option(0, "save", "store the settings", OPT_TYPE_FLAG_ON, &settings.save);
    opt_option *table[] = {&ini, &name, &cache, &verbose, &store, nullptr};

    int status = 2;
    if (opt_parse(table, argc, argv) != argc) {  // the reason is logged
        (void)opt_fprintf_help(stderr, argv[0], 0, nullptr, table, nullptr);
    } else if (readLoad(settings.ini, &settings.load)) {
        std::printf("name %s\ncache %" PRIu64 "\nload %g\nverbose %d\n", settings.name,
                    settings.cache, settings.load, settings.verbose ? 1 : 0);
        status = settings.save && !save(settings) ? 1 : 0;
    }
    opt_free(table);
    return status;
}
