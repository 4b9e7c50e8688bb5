// Case, tokens, trimming and replacing. Letters are those of ASCII, whatever the locale says: names
// in files and protocols must compare alike everywhere.
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <climits>

#include <vex/text.h>

#include "base/ascii.h"
#include "base/checked.h"
#include "log/report.h"

using vex::ascii::toLower;

namespace {

template <typename Change>
char *changeEach(const char *who, char *text, Change change) {
    if (text == nullptr) return VEX_FAIL_AS(who, EINVAL, EINVAL, nullptr, "invalid NULL parameter");
    for (char *c = text; *c != '\0'; ++c) *c = change(*c);
    return text;
}

int compare(const char *a, const char *b, size_t n) {
    for (; n > 0; ++a, ++b, --n) {
        const int difference =
            static_cast<unsigned char>(toLower(*a)) - static_cast<unsigned char>(toLower(*b));
        if (difference != 0 || *a == '\0') return difference;
    }
    return 0;
}

int compareOrReport(const char *who, const char *a, const char *b, size_t n) {
    if (a == nullptr || b == nullptr)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, INT_MIN, "invalid NULL parameter");
    return compare(a, b, n);
}

/// The next piece at or behind @p text and its length; nullptr when only separators are left.
const char *nextPiece(const char *text, const char *separators, size_t *length) {
    text += strspn(text, separators);
    *length = strcspn(text, separators);
    return *length > 0 ? text : nullptr;
}

size_t countOccurrences(const char *text, const char *find, size_t find_length) {
    size_t count = 0;
    for (; (text = strstr(text, find)) != nullptr; text += find_length) ++count;
    return count;
}

}  // namespace

char *vex_strtolower(char *text) {
    return changeEach(__func__, text, [](char c) { return toLower(c); });
}

char *vex_strtoupper(char *text) {
    return changeEach(__func__, text, [](char c) { return vex::ascii::toUpper(c); });
}

int vex_strcasecmp(const char *a, const char *b) {
    return compareOrReport(__func__, a, b, SIZE_MAX);
}

int vex_strncasecmp(const char *a, const char *b, size_t n) {
    return compareOrReport(__func__, a, b, n);
}

const char *vex_strcasestr(const char *text, const char *find) {
    if (text == nullptr || find == nullptr)
        return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    const size_t length = strlen(find), text_length = strlen(text);
    for (size_t at = 0; at + length <= text_length; ++at)
        if (compare(text + at, find, length) == 0) return text + at;
    return nullptr;
}

char *vex_strtok(char *text, const char *separators, char **state) {
    if (separators == nullptr || state == nullptr)
        return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    char *const rest = text != nullptr ? text : *state;
    size_t length = 0;
    const char *const piece = rest == nullptr ? nullptr : nextPiece(rest, separators, &length);
    if (piece == nullptr) return *state = nullptr;
    char *const start = rest + (piece - rest), *const end = start + length;
    *state = *end == '\0' ? end : end + 1;
    *end = '\0';
    return start;
}

char *vex_strtrim(char *text) {
    if (text == nullptr) return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    while (vex::ascii::isSpace(*text)) ++text;
    char *end = text + strlen(text);
    while (end > text && vex::ascii::isSpace(end[-1])) --end;
    *end = '\0';
    return text;
}

char *vex_str_replace(const char *text, const char *find, const char *replace) {
    if (text == nullptr || find == nullptr || replace == nullptr)
        return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    if (*find == '\0') return VEX_FAIL(EINVAL, nullptr, "nothing to find");
    const size_t find_length = strlen(find), replace_length = strlen(replace);
    const size_t count = countOccurrences(text, find, find_length);
    const size_t kept = strlen(text) - count * find_length;
    size_t added;
    char *const result =
        vex::checkedMultiply(count, replace_length, &added) && added < SIZE_MAX - kept
            ? static_cast<char *>(malloc(kept + added + 1))
            : nullptr;
    if (result == nullptr) return VEX_FAIL(ENOMEM, nullptr, "could not allocate memory");
    char *to = result;
    for (const char *found; (found = strstr(text, find)) != nullptr; text = found + find_length) {
        to = static_cast<char *>(mempcpy(to, text, static_cast<size_t>(found - text)));
        to = static_cast<char *>(mempcpy(to, replace, replace_length));
    }
    memcpy(to, text, strlen(text) + 1);
    return result;
}

int vex_str_split(const char *text, const char *separators, std::vector<std::string> &out) {
    if (text == nullptr || separators == nullptr)
        return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    return vex::guard(__func__, -1, [&] {
        std::vector<std::string> pieces;
        size_t length;
        while ((text = nextPiece(text, separators, &length)) != nullptr) {
            pieces.emplace_back(text, length);
            text += length;
        }
        out.swap(pieces);
        return 0;
    });
}
