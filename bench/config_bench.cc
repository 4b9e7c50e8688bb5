// The ini store against GLib's GKeyFile: loading a file, and reading one value.
#include <glib.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include <vex/inifile.h>

#include "peer.h"

namespace {

constexpr int kSections = 10;

struct Names {
    std::vector<std::string> sections, keys;  // the section of each key
};

Names writeFile(const std::string &path, int keys) {
    Names names;
    std::ofstream out(path);
    for (int i = 0; i < keys; ++i) {
        if (i % (keys / kSections) == 0)
            out << "\n# what section " << i << " is for\n[section" << i << "]\n";
        names.sections.push_back("section" +
                                 std::to_string(i / (keys / kSections) * (keys / kSections)));
        names.keys.push_back("SettingNumber" + std::to_string(i));
        out << names.keys.back() << " = the value of setting " << i << "\n";
    }
    return names;
}

void require(bool ok, const char *what) {
    if (ok) return;
    std::fprintf(stderr, "bench_config: %s failed\n", what);
    std::exit(1);
}

void compareLoad(const std::string &path, int keys) {
    const int loads = 2000000 / (keys + 1000) + 1;
    bench::Comparison c{.name = "ini load, " + std::to_string(keys) + " keys",
                        .peer = "GKeyFile",
                        .target = "0.7",
                        .units = static_cast<double>(loads),
                        .byTime = true};
    bench::compare(
        c,
        [&] {
            for (int i = 0; i < loads; ++i) {
                require(InifileLoadA(path.c_str()) == 0, "InifileLoadA");
                require(InifileReleaseA(path.c_str()) == 0, "InifileReleaseA");
            }
        },
        [&] {
            for (int i = 0; i < loads; ++i) {
                GKeyFile *file = g_key_file_new();
                require(g_key_file_load_from_file(file, path.c_str(), G_KEY_FILE_KEEP_COMMENTS,
                                                  nullptr),
                        "g_key_file_load_from_file");
                g_key_file_free(file);
            }
        });
}

void compareGet(const std::string &path, int keys, const Names &names) {
    constexpr size_t kGets = 200000;
    GKeyFile *file = g_key_file_new();
    require(g_key_file_load_from_file(file, path.c_str(), G_KEY_FILE_KEEP_COMMENTS, nullptr),
            "load");
    bench::Comparison c{.name = "ini get, " + std::to_string(keys) + " keys",
                        .peer = "GKeyFile",
                        .target = "1.0",
                        .units = kGets,
                        .byTime = true};
    const auto at = [&](size_t i) { return i * 7919 % names.keys.size(); };
    bench::compare(
        c,
        [&] {
            char value[128];
            for (size_t i = 0; i < kGets; ++i)
                require(InifileGetValueA(names.sections[at(i)].c_str(), names.keys[at(i)].c_str(),
                                         value, sizeof value, "", path.c_str()) > 0,
                        "InifileGetValueA");
        },
        [&] {
            for (size_t i = 0; i < kGets; ++i) {
                char *value = g_key_file_get_string(file, names.sections[at(i)].c_str(),
                                                    names.keys[at(i)].c_str(), nullptr);
                require(value != nullptr, "g_key_file_get_string");
                g_free(value);
            }
        });
    g_key_file_free(file);
}

}  // namespace

int main() {
    char folder[] = "/tmp/bench-config-XXXXXX";
    require(mkdtemp(folder) != nullptr, "mkdtemp");
    for (const int keys : {10, 1000, 100000}) {
        const std::string path = std::string(folder) + "/" + std::to_string(keys) + ".ini";
        const Names names = writeFile(path, keys);
        compareLoad(path, keys);
        compareGet(path, keys, names);
        InifileReleaseAll();
        unlink(path.c_str());
    }
    rmdir(folder);
}
