// The getters: one core that copies text out, and typed forms that convert it.
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>

#include <vex/inifile.h>
#include <vex/values.h>

#include "base/ascii.h"
#include "base/native_path.h"
#include "config/ini_store.h"

namespace vex::config {
namespace {

/// Room for any number that the typed getters print: the largest float has 39 digits before its 48
/// decimals.
constexpr int kNumberRoom = 512;

/// Collects names, each with its NUL, as long as they fit whole, and counts what all of them need.
class NameList {
public:
    NameList(char *buf, size_t room) : buf_(buf), room_(room) {}
    void add(std::string_view name) {
        needed_ += name.size() + 1;
        if (needed_ > room_) return;
        std::memcpy(buf_ + needed_ - name.size() - 1, name.data(), name.size());
    }
    int needed() const { return static_cast<int>(needed_); }

private:
    char *buf_;
    size_t room_;
    size_t needed_ = 0;
};

int listSections(const File &file, NameList names) {
    for (const Section &section : file.sections)
        if (!section.deleted && &section != &file.sections.front()) names.add(section.name.view());
    return names.needed();
}

int listKeys(File &file, const char *section, NameList names) {
    const Section *found = file.find(section);
    if (found == nullptr || found->deleted) return 0;
    for (const EntryId id : found->order)
        if (!file.entry(id)->deleted) names.add(file.entry(id)->key.view());
    return names.needed();
}

/// Copies what fits in front of the NUL that the zeroed buffer already holds; the length copied.
int copyText(char *buf, int buflen, std::string_view text) {
    const size_t n = std::min(text.size(), static_cast<size_t>(buflen) - 1);
    std::memcpy(buf, text.data(), n);
    return static_cast<int>(n);
}

/// The n-th value of a chain; nullptr when it is missing or empty.
const Entry *nthValue(const File &file, const Entry *entry, int n) {
    for (; n > 0 && entry != nullptr; --n) entry = file.older(*entry);
    return entry == nullptr || entry->deleted || entry->value.empty() ? nullptr : entry;
}

int getValue(File &file, int n, const char *section, const char *key, char *buf, int buflen,
             const char *defaultValue) {
    const Entry *newest = file.find(section, key);
    if (const Entry *entry = nthValue(file, newest, n); entry != nullptr) {
        (void)copyText(buf, buflen, entry->value.view());
        return static_cast<int>(entry->value.view().size()) + 1;
    }
    // an older value that is missing says nothing about the newest one, which stays
    const bool store_default = newest == nullptr || newest->value.empty();
    if (store_default) (void)inifileSaveValue(file, section, key, defaultValue);
    return defaultValue == nullptr ? 0 : -copyText(buf, buflen, defaultValue);
}

/// What every typed getter does first: the default to its out value, then the text. 0 on failure.
template <typename T>
int getText(const char *who, const char *section, const char *key, char *buf,
            const char *default_text, T *out, T defaultValue, const char *path) {
    if (out == nullptr || section == nullptr || key == nullptr || path == nullptr)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, 0, "invalid NULL parameter");
    *out = defaultValue;
    return inifileGetNthValue(0, section, key, buf, kNumberRoom, default_text, path);
}

/// Failure without a log line: the caller knows what the value was for and reports it.
int badValue(int err, int failure) {
    errno = err;
    return failure;
}

/// A number's default as text; NUL-terminated because the buffer was zeroed.
template <typename T>
struct DefaultText {
    explicit DefaultText(T value) { (void)std::to_chars(text, text + sizeof text - 1, value); }
    char text[32] = {};
};

template <typename T>
int getInteger(const char *who, const char *section, const char *key, T *out, T defaultValue,
               const char *path) {
    char text[kNumberRoom];
    const int result =
        getText(who, section, key, text, DefaultText(defaultValue).text, out, defaultValue, path);
    if (result == 0) return 0;
    char *end = nullptr;
    errno = 0;
    T value;
    bool in_range = true;
    if constexpr (std::numeric_limits<T>::is_signed) {
        const long long wide = strtoll(text, &end, 10);
        value = static_cast<T>(wide);
        in_range = value == wide;
    } else {
        const unsigned long long wide = strtoull(text, &end, 10);
        value = static_cast<T>(wide);
        in_range = value == wide;
    }
    if (end == text || *end != '\0') return badValue(EINVAL, 0);
    if (!in_range || errno == ERANGE) return badValue(ERANGE, 0);
    *out = value;
    return result;
}

}  // namespace
}  // namespace vex::config

using namespace vex::config;

int inifileGetNthValue(int n, const char *section, const char *key, char *buf, int buflen,
                       const char *defaultValue, const char *path) {
    if (buf == nullptr || buflen < 1)
        return VEX_FAIL(EINVAL, 0, "invalid NULL parameter or buflen");
    std::memset(buf, 0, static_cast<size_t>(buflen));
    VEX_INI_REQUIRE(0, path);
    const int result = withStore(__func__, std::numeric_limits<int>::max(), [&] {
        File &file = inifileAdd(path);
        if (section == nullptr) return listSections(file, {buf, static_cast<size_t>(buflen)});
        if (key == nullptr) return listKeys(file, section, {buf, static_cast<size_t>(buflen)});
        return getValue(file, n, section, key, buf, buflen, defaultValue);
    });
    if (result != std::numeric_limits<int>::max()) return result;
    // out of memory: the caller still gets a value to work with
    if (section != nullptr && key != nullptr && defaultValue != nullptr)
        (void)copyText(buf, buflen, defaultValue);
    return 0;
}

int InifileGetNthValueA(int n, const char *section, const char *key, char *buf, int buflen,
                        const char *defaultValue, const char *path) {
    return inifileGetNthValue(n, section, key, buf, buflen, defaultValue, path);
}

int InifileGetValueA(const char *section, const char *key, char *buf, int buflen,
                     const char *defaultValue, const char *path) {
    return inifileGetNthValue(0, section, key, buf, buflen, defaultValue, path);
}

int InifileGetPathA(const char *section, const char *key, char *buf, int buflen,
                    const char *defaultValue, const char *path) {
    VEX_INI_REQUIRE(0, section, key);
    const int result = inifileGetNthValue(0, section, key, buf, buflen, defaultValue, path);
    if (buf != nullptr && buflen > 0) vex::toNativePath(buf);
    return result;
}

int InifileGetIntegerA(const char *section, const char *key, int *out, int defaultValue,
                       const char *path) {
    return getInteger(__func__, section, key, out, defaultValue, path);
}

int InifileGetUIntegerA(const char *section, const char *key, unsigned *out, unsigned defaultValue,
                        const char *path) {
    return getInteger(__func__, section, key, out, defaultValue, path);
}

int InifileGetShortA(const char *section, const char *key, short *out, short defaultValue,
                     const char *path) {
    return getInteger(__func__, section, key, out, defaultValue, path);
}

int InifileGetUShortA(const char *section, const char *key, unsigned short *out,
                      unsigned short defaultValue, const char *path) {
    return getInteger(__func__, section, key, out, defaultValue, path);
}

int InifileGetLongLongA(const char *section, const char *key, long long *out,
                        long long defaultValue, const char *path) {
    return getInteger(__func__, section, key, out, defaultValue, path);
}

int InifileGetULongLongA(const char *section, const char *key, unsigned long long *out,
                         unsigned long long defaultValue, const char *path) {
    return getInteger(__func__, section, key, out, defaultValue, path);
}

int InifileGetSizeA(const char *section, const char *key, uint64_t *out, uint64_t defaultValue,
                    const char *path) {
    char text[kNumberRoom];
    const int result = getText(__func__, section, key, text, DefaultText(defaultValue).text, out,
                               defaultValue, path);
    if (result == 0) return -1;
    const char *end = nullptr;
    const uint64_t value = strtosize(text, &end);
    if (errno != 0) return -1;
    // a unit alone reads as 0: there must be a digit
    const bool has_digit = std::string_view(text).find_first_of("0123456789") == 0 ||
                           (*text == '+' && vex::ascii::isDigit(text[1]));
    if (!has_digit || *end != '\0') return badValue(EINVAL, -1);
    *out = value;
    return result;
}

int InifileGetPercentageA(const char *section, const char *key, double *out, double defaultValue,
                          const char *path) {
    char text[kNumberRoom], default_text[kNumberRoom] = {};
    // "%.48g%%" in the C locale: the file has to mean the same everywhere
    char *end = std::to_chars(default_text, default_text + sizeof default_text - 2, defaultValue,
                              std::chars_format::general, 48)
                    .ptr;
    *end = '%';
    const int result = getText(__func__, section, key, text, default_text, out, defaultValue, path);
    if (result == 0) return -1;
    double value = 0;
    if (strpercentotvalue(text, &value) == 0) return badValue(EINVAL, -1);
    if (!(value >= 1 && value <= 100)) return badValue(ERANGE, -1);
    *out = value;
    return result;
}

int InifileGetBooleanA(const char *section, const char *key, bool *out, bool defaultValue,
                       const char *path) {
    char text[kNumberRoom];
    const int result =
        getText(__func__, section, key, text, defaultValue ? "1" : "0", out, defaultValue, path);
    if (result != 0) *out = std::strchr("YyTt1", *text) != nullptr && *text != '\0';
    return result;
}

int InifileGetFloatA(const char *section, const char *key, float *out, float defaultValue,
                     const char *path) {
    char text[kNumberRoom], default_text[kNumberRoom] = {};
    // "%.32f", and strtof without its locale
    (void)std::to_chars(default_text, default_text + sizeof default_text - 1, defaultValue,
                        std::chars_format::fixed, 32);
    const int result = getText(__func__, section, key, text, default_text, out, defaultValue, path);
    if (result == 0) return 0;
    const char *start = *text == '+' && text[1] != '-' ? text + 1 : text;
    float value = 0;
    const auto parsed = std::from_chars(start, text + std::strlen(text), value);
    if (parsed.ec == std::errc::result_out_of_range) return badValue(ERANGE, 0);
    if (parsed.ec != std::errc{} || *parsed.ptr != '\0') return badValue(EINVAL, 0);
    *out = value;
    return result;
}

int InifileValueExistsA(const char *section, const char *key, const char *path) {
    VEX_INI_REQUIRE(-1, section, key, path);
    return withStore(__func__, -1, [&] {
        File &file = inifileAdd(path);
        if (nthValue(file, file.find(section, key), 0) != nullptr) return 0;
        errno = ENOENT;
        return -1;
    });
}
