// Loads any bytes as an ini file, reads every value that it lists, and saves it: what was saved
// must load to the same names and values.
#include "fuzz.h"

static std::vector<std::string> names(const char *section, const char *path) {
    const int needed = InifileGetValueA(section, nullptr, std::string(1, '\0').data(), 1, nullptr, path);
    std::string buf(static_cast<size_t>(needed) + 1, '\0');
    InifileGetValueA(section, nullptr, buf.data(), static_cast<int>(buf.size()), nullptr, path);
    std::vector<std::string> result;
    for (size_t at = 0; at < static_cast<size_t>(needed); at += result.back().size() + 1)
        result.emplace_back(buf.c_str() + at);
    return result;
}

static std::string contents(const char *path) {
    std::string out;
    std::vector<std::string> sections = names(nullptr, path);
    sections.insert(sections.begin(), "__dummy__section__");
    for (const auto &section : sections) {
        out += "[" + section + "]\n";
        for (const auto &key : names(section.c_str(), path)) {
            char value[512];
            int n = 0;
            do {
                InifileGetNthValueA(n, section.c_str(), key.c_str(), value, sizeof value, nullptr, path);
                out += key + "=" + value + "\n";
            } while (++n < 4);
        }
    }
    return out;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const std::string path = "/tmp/vex-ini-fuzz-" + std::to_string(getpid());
    vexLogSetFlags(VEX_LOG_NO_OUTPUT, 0);
    FILE *file = fopen(path.c_str(), "wb");
    require(file != nullptr && fwrite(data, 1, size, file) == size && fclose(file) == 0);
    const std::string before = contents(path.c_str());
    require(InifileSaveA(path.c_str()) == 0);
    InifileReleaseAll();
    require(contents(path.c_str()) == before);
    InifileReleaseAll();
    unlink(path.c_str());
    unlink((path + ".bak").c_str());
    return 0;
}
