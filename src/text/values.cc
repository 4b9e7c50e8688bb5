#include <errno.h>
#include <stdlib.h>
#include <wchar.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <iterator>

#include <vex/values.h>

#include "base/ascii.h"
#include "base/c_locale.h"
#include "log/report.h"

namespace {

constexpr char kUnits[] = "KMGTPE";
constexpr unsigned kUnitCount = sizeof kUnits - 1;
// a count divided by 2^60 has at most 60 places, so digits behind these are zeros
constexpr int kMostPlaces = 64;

constexpr const char *kTrueWords[] = {"yes", "y", "1", "true", "t"};
constexpr const char *kFalseWords[] = {"no", "n", "0", "false", "f"};

unsigned long long readUnsigned(const char *text, char **end) {
    return strtoull(text, end, 10);
}
unsigned long long readUnsigned(const wchar_t *text, wchar_t **end) {
    return wcstoull(text, end, 10);
}

template <typename Char>
void setEnd(const Char **end, const Char *position) {
    if (end != nullptr) *end = position;
}

/// The rank of a unit letter, 1 for K to 6 for E, or 0.
template <typename Char>
unsigned unitRank(Char letter) {
    const Char upper = vex::ascii::toUpper(letter);
    for (unsigned i = 0; i < kUnitCount; ++i)
        if (upper == static_cast<Char>(kUnits[i])) return i + 1;
    return 0;
}

template <typename Char>
uint64_t sizeMultiplier(const Char *at, const Char **end) {
    uint64_t multiplier = 1;
    if (const unsigned rank = unitRank(*at); rank > 0) {
        ++at;
        const bool binary = vex::ascii::toLower(*at) == 'i';
        if (binary) ++at;
        for (unsigned i = 0; i < rank; ++i) multiplier *= binary ? 1024 : 1000;
    }
    if (vex::ascii::toLower(*at) == 'b') ++at;
    setEnd(end, at);
    return multiplier;
}

template <typename Char>
uint64_t parseSize(const char *who, const Char *text, const Char **end) {
    Char *rest = nullptr;
    errno = 0;
    const uint64_t number = readUnsigned(text, &rest);
    if (errno != 0 || *rest == 0) {
        setEnd<Char>(end, rest);
        return number;
    }
    const uint64_t multiplier = sizeMultiplier<Char>(rest, end);
    if (multiplier != 1 && number > UINT64_MAX / multiplier)
        return VEX_FAIL_AS(who, ERANGE, ERANGE, UINT64_MAX, "number above positive range");
    return number * multiplier;
}

/// The position behind @p word when @p text begins with it in either case, else nullptr.
template <typename Char>
const Char *skipWord(const Char *text, const char *word) {
    for (; *word != '\0'; ++word, ++text)
        if (vex::ascii::toLower(*text) != static_cast<Char>(*word)) return nullptr;
    return text;
}

template <typename Char>
int parseBool(const char *who, const Char *text, const Char **end) {
    for (const char *word : kTrueWords) {
        if (const Char *rest = skipWord(text, word)) return setEnd(end, rest), 1;
    }
    for (const char *word : kFalseWords) {
        if (const Char *rest = skipWord(text, word)) return setEnd(end, rest), 0;
    }
    setEnd(end, text);
    return VEX_FAIL_AS(who, ERANGE, ERANGE, 0, "value outside of range");
}

/// How many times @p divisor divides @p value without a rest.
unsigned exactDivisions(uint64_t value, uint64_t divisor, uint64_t *quotient) {
    unsigned count = 0;
    for (; value != 0 && value % divisor == 0; ++count) value /= divisor;
    *quotient = value;
    return count;
}

template <typename Char>
Char *printExact(const char *who, Char *buffer, size_t length, uint64_t value) {
    if (buffer == nullptr || length == 0)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, nullptr, "invalid NULL parameter");
    uint64_t binary = value, decimal = value;
    const unsigned k2 = exactDivisions(value, 1024, &binary);
    const unsigned k10 = exactDivisions(value, 1000, &decimal);

    char suffix[4] = "";
    if (k10 > k2) {
        value = decimal;
        suffix[0] = kUnits[k10 - 1], suffix[1] = 'B';
    } else if (k2 > 0) {
        value = binary;
        suffix[0] = kUnits[k2 - 1], suffix[1] = 'i', suffix[2] = 'B';
    }
    const size_t suffix_length = std::strlen(suffix);
    if (suffix_length >= length)
        return VEX_FAIL_AS(who, ENOBUFS, ENOBUFS, nullptr, "buffer too short");
    char digits[24];
    const auto digit_count =
        static_cast<size_t>(std::to_chars(digits, std::end(digits), value).ptr - digits);
    if (digit_count > length - suffix_length - 1) {
        errno = ENOBUFS;
        return nullptr;
    }
    Char *const start = buffer + (length - 1 - suffix_length - digit_count);
    Char *to = std::copy(digits, digits + digit_count, start);
    to = std::copy(suffix, suffix + suffix_length, to);
    *to = 0;
    return start;
}

/// The steps of 1024 that bring @p value below 1025.
unsigned roundedRank(uint64_t value) {
    unsigned rank = 0;
    for (; value >= 1025; value >>= 10) ++rank;
    return rank;
}

template <typename Char>
Char *printRounded(const char *who, Char *buffer, size_t length, uint64_t value, int precision) {
    if (buffer == nullptr || length == 0 || precision < 0)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, nullptr, "invalid NULL parameter");
    const unsigned rank = roundedRank(value);
    const uint64_t unit = uint64_t{1} << (10 * rank);
    char number[128];
    size_t zeros = 0;
    char *number_end = number;
    if (value % unit == 0) {
        number_end = std::to_chars(number, std::end(number), value / unit).ptr;
    } else {
        const int places = precision < kMostPlaces ? precision : kMostPlaces;
        const double quotient = static_cast<double>(value) / static_cast<double>(unit);
        number_end =
            std::to_chars(number, std::end(number), quotient, std::chars_format::fixed, places).ptr;
        zeros = static_cast<size_t>(precision - places);
    }
    char suffix[8] = " bytes";
    if (rank > 0) suffix[1] = kUnits[rank - 1], suffix[2] = 'i', suffix[3] = 'B', suffix[4] = '\0';

    const size_t digits = static_cast<size_t>(number_end - number),
                 suffix_length = std::strlen(suffix);
    if (digits + zeros + suffix_length >= length) {
        errno = ENOBUFS;
        return nullptr;
    }
    Char *to = std::copy(number, number_end, buffer);
    to = std::fill_n(to, zeros, static_cast<Char>('0'));
    to = std::copy(suffix, suffix + suffix_length, to);
    *to = 0;
    return buffer;
}

/// Reads digits, stopping the sum where it cannot become valid again; advances @p at.
unsigned readDigits(const char **at) {
    unsigned value = 0;
    for (; vex::ascii::isDigit(**at); ++*at)
        if (value < 1000) value = value * 10 + static_cast<unsigned>(**at - '0');
    return value;
}

}  // namespace

uint64_t strtosizemult(const char *suffix, const char **end) {
    if (suffix == nullptr) return VEX_FAIL(EINVAL, uint64_t{0}, "invalid NULL parameter");
    return sizeMultiplier(suffix, end);
}

uint64_t wcstosizemult(const wchar_t *suffix, const wchar_t **end) {
    if (suffix == nullptr) return VEX_FAIL(EINVAL, uint64_t{0}, "invalid NULL parameter");
    return sizeMultiplier(suffix, end);
}

uint64_t strtosize(const char *text, const char **end) {
    if (text == nullptr) return VEX_FAIL(EINVAL, uint64_t{0}, "invalid NULL parameter");
    return parseSize(__func__, text, end);
}

uint64_t wcstosize(const wchar_t *text, const wchar_t **end) {
    if (text == nullptr) return VEX_FAIL(EINVAL, uint64_t{0}, "invalid NULL parameter");
    return parseSize(__func__, text, end);
}

int strtobool(const char *text, const char **end) {
    if (text == nullptr) return VEX_FAIL(EINVAL, 0, "invalid NULL parameter");
    return parseBool(__func__, text, end);
}

int wcstobool(const wchar_t *text, const wchar_t **end) {
    if (text == nullptr) return VEX_FAIL(EINVAL, 0, "invalid NULL parameter");
    return parseBool(__func__, text, end);
}

int strpercentotvalue(const char *text, double *value) {
    const int saved = errno;
    errno = EINVAL;
    if (text == nullptr || value == nullptr) return 0;
    char *rest = nullptr;
    errno = 0;
    const double number = strtod_l(text, &rest, vex::cLocale());
    const bool underflow = number == 0.0 && errno == ERANGE;
    errno = EINVAL;
    if (rest == text || underflow) return 0;

    unsigned signs = 0;
    for (; *rest != '\0'; ++rest) {
        if (*rest == '%')
            ++signs;
        else if (!vex::ascii::isSpace(*rest))
            return 0;
    }
    if (signs != 1) return 0;
    *value = number;
    errno = saved;
    return 1;
}

char *sizetostr(char *buffer, size_t length, uint64_t value) {
    return printExact(__func__, buffer, length, value);
}

wchar_t *sizetowcs(wchar_t *buffer, size_t length, uint64_t value) {
    return printExact(__func__, buffer, length, value);
}

char *sizetofloatstr(char *buffer, size_t length, uint64_t value, int precision) {
    return printRounded(__func__, buffer, length, value, precision);
}

wchar_t *sizetofloatwcs(wchar_t *buffer, size_t length, uint64_t value, int precision) {
    return printRounded(__func__, buffer, length, value, precision);
}

unsigned strtotimeofday(const char *text, const char **end) {
    if (text == nullptr) return VEX_FAIL_AS(__func__, ERANGE, EINVAL, 0U, "invalid NULL parameter");
    const char *at = text;
    const auto failed = [&](const char *what) {
        setEnd(end, text);
        return VEX_FAIL_AS("strtotimeofday", ERANGE, ERANGE, 0U, "%s", what);
    };
    if (!vex::ascii::isDigit(*at)) return failed("hour value not a digit");
    const unsigned hour = readDigits(&at);
    if (hour > 23 || *at != ':') return failed("hour value outside of range or inproper format");
    if (!vex::ascii::isDigit(*++at)) return failed("minute value not a digit");
    const unsigned minute = readDigits(&at);
    if (minute > 59) return failed("minute value outside of range");
    unsigned second = 0;
    if (*at == ':') {
        if (!vex::ascii::isDigit(*++at)) return failed("second value not a digit");
        second = readDigits(&at);
        if (second > 59) return failed("second value outside of range");
    }
    setEnd(end, at);
    return hour * 3600 + minute * 60 + second;
}
