// Character classes and case for ASCII, whatever the locale says: files must read alike everywhere.
#ifndef VEX_BASE_ASCII_H
#define VEX_BASE_ASCII_H

#include <string_view>

namespace vex::ascii {

template <typename Char>
constexpr bool isDigit(Char c) {
    return c >= '0' && c <= '9';
}
template <typename Char>
constexpr bool isUpper(Char c) {
    return c >= 'A' && c <= 'Z';
}
template <typename Char>
constexpr bool isLower(Char c) {
    return c >= 'a' && c <= 'z';
}
template <typename Char>
constexpr bool isAlpha(Char c) {
    return isUpper(c) || isLower(c);
}
/// Tab, line feed, vertical tab, form feed, carriage return and blank.
template <typename Char>
constexpr bool isSpace(Char c) {
    return (c >= '\t' && c <= '\r') || c == ' ';
}
/// The text without the white space that it begins with.
constexpr std::string_view trimLeft(std::string_view text) {
    while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
    return text;
}
/// The text without the white space that it ends with.
constexpr std::string_view trimRight(std::string_view text) {
    while (!text.empty() && isSpace(text.back())) text.remove_suffix(1);
    return text;
}
/// The text without white space at its ends.
constexpr std::string_view trim(std::string_view text) {
    return trimRight(trimLeft(text));
}
/// Printable, but neither letter, digit nor blank.
template <typename Char>
constexpr bool isPunct(Char c) {
    return c > ' ' && c < 0x7f && !isAlpha(c) && !isDigit(c);
}
template <typename Char>
constexpr Char toLower(Char c) {
    return isUpper(c) ? static_cast<Char>(c + ('a' - 'A')) : c;
}
template <typename Char>
constexpr Char toUpper(Char c) {
    return isLower(c) ? static_cast<Char>(c - ('a' - 'A')) : c;
}
/// The value of a hexadecimal digit of either case, -1 for any other character.
template <typename Char>
constexpr int hexValue(Char c) {
    if (isDigit(c)) return static_cast<int>(c - '0');
    const Char lower = toLower(c);
    return lower >= 'a' && lower <= 'f' ? static_cast<int>(lower - 'a') + 10 : -1;
}

}  // namespace vex::ascii

#endif
