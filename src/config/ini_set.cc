// The savers: they change the file in memory; ini_save.cc writes it to disk.
#include <charconv>

#include <vex/inifile.h>

#include "base/ascii.h"
#include "config/ini_store.h"

namespace vex::config {
namespace {

/// Whether the name between '[' and ']' would be read back as it is.
bool readableSection(std::string_view name) {
    return name.find_first_of("]\r\n") == std::string_view::npos;
}

/// Whether a line that begins with this key would be read back as that key.
bool readableKey(std::string_view key) {
    if (key.empty() || key.find_first_of("=\r\n") != std::string_view::npos) return false;
    const char first = key.front();
    if (first == '[' || first == ';' || first == '#' || ascii::isSpace(key.back())) return false;
    return ascii::isAlpha(first) || ascii::isDigit(first) || ascii::isPunct(first);
}

/// Comment lines without a marker would be read back as entries: they get one.
String asComment(std::string_view text) {
    String out;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find_first_of("\r\n"));
        const std::string_view content = ascii::trimLeft(line);
        if (!content.empty() && content.front() != ';' && content.front() != '#') out += "; ";
        out += line;
        out += '\n';
        const size_t line_break = text.compare(line.size(), 2, "\r\n") == 0 ? 2 : 1;
        text.remove_prefix(std::min(text.size(), line.size() + line_break));
    }
    return out;
}

/// The comment of the file's head, of a section or of an entry; nullptr when that is absent.
Text *commentOf(File &file, const char *section, const char *key) {
    if (section == nullptr) return key == nullptr ? &file.head_comment : nullptr;
    if (key == nullptr) {
        Section *found = file.find(section);
        return found == nullptr || found->deleted ? nullptr : &found->comment;
    }
    Entry *entry = file.find(section, key);
    return entry == nullptr ? nullptr : &entry->comment;
}

int absent(int failure) {
    errno = ENOENT;
    return failure;
}

int save(const char *who, const char *section, const char *key, const char *value,
         const char *path) {
    if (section == nullptr || key == nullptr || path == nullptr)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, -1, "invalid NULL parameter");
    return withStore(who, -1, [&] {
        if (inifileSaveValue(inifileAdd(path), section, key, value) == 0) return 0;
        return VEX_FAIL_AS(who, EINVAL, EINVAL, -1, "invalid section or key [%s] %s", section, key);
    });
}

template <typename T, typename... Format>
int saveNumber(const char *who, const char *section, const char *key, T value, const char *path,
               Format... format) {
    char text[128] = {};
    (void)std::to_chars(text, text + sizeof text - 1, value, format...);
    return save(who, section, key, text, path);
}

}  // namespace

int inifileSaveValue(File &file, const char *section, const char *key, const char *value) {
    if (!readableSection(section) || !readableKey(key)) {
        errno = EINVAL;
        return -1;
    }
    file.set(section, key, value);
    return 0;
}

}  // namespace vex::config

using namespace vex::config;

int InifileSaveValueA(const char *section, const char *key, const char *value, const char *path) {
    return save(__func__, section, key, value, path);
}

int InifileSaveIntegerA(const char *section, const char *key, int value, const char *path) {
    return saveNumber(__func__, section, key, value, path);
}

int InifileSaveUIntegerA(const char *section, const char *key, unsigned value, const char *path) {
    return saveNumber(__func__, section, key, value, path);
}

int InifileSaveShortA(const char *section, const char *key, short value, const char *path) {
    return saveNumber(__func__, section, key, value, path);
}

int InifileSaveUShortA(const char *section, const char *key, unsigned short value,
                       const char *path) {
    return saveNumber(__func__, section, key, value, path);
}

int InifileSaveLongLongA(const char *section, const char *key, long long value, const char *path) {
    return saveNumber(__func__, section, key, value, path);
}

int InifileSaveULongLongA(const char *section, const char *key, unsigned long long value,
                          const char *path) {
    return saveNumber(__func__, section, key, value, path);
}

int InifileSaveSizeA(const char *section, const char *key, uint64_t value, const char *path) {
    return saveNumber(__func__, section, key, value, path);
}

int InifileSaveBooleanA(const char *section, const char *key, bool value, const char *path) {
    return saveNumber(__func__, section, key, value ? 1U : 0U, path);
}

int InifileSaveFloatA(const char *section, const char *key, float value, const char *path) {
    // "%.48f" in the C locale: the file has to mean the same everywhere
    return saveNumber(__func__, section, key, value, path, std::chars_format::fixed, 48);
}

int InifileGetCommentA(const char *section, const char *key, char *buf, int buflen,
                       const char *path) {
    if (buf == nullptr || buflen < 1)
        return VEX_FAIL(EINVAL, 0, "invalid NULL parameter or buflen");
    std::memset(buf, 0, static_cast<size_t>(buflen));
    VEX_INI_REQUIRE(0, path);
    return withStore(__func__, 0, [&] {
        const Text *comment = commentOf(inifileAdd(path), section, key);
        if (comment == nullptr || comment->empty()) return absent(0);
        const std::string_view text = comment->view();
        std::memcpy(buf, text.data(), std::min(text.size(), static_cast<size_t>(buflen) - 1));
        return static_cast<int>(text.size()) + 1;
    });
}

int InifileSaveCommentA(const char *section, const char *key, const char *comment,
                        const char *path) {
    VEX_INI_REQUIRE(-1, path);
    return withStore(__func__, -1, [&] {
        File &file = inifileAdd(path);
        Text *place = commentOf(file, section, key);
        if (place == nullptr) return absent(-1);
        *place = Text::copied(asComment(comment != nullptr ? comment : ""));
        file.modified = true;
        return 0;
    });
}

int InifileDeleteValueA(const char *section, const char *key, const char *path) {
    VEX_INI_REQUIRE(-1, section, path);
    return withStore(__func__, -1,
                     [&] { return inifileAdd(path).erase(section, key) ? 0 : absent(-1); });
}
