#include "json.h"

#include <algorithm>
#include <cstdio>

#include <vex/encoding.h>

namespace tool {
namespace {

/// Length of the UTF-8 character at the position, 0 where there is none.
size_t characterAt(const std::string &text, size_t at) {
    const size_t left = text.size() - at;
    for (size_t length = 1; length <= std::min<size_t>(left, 4); ++length)
        if (vex_utf8_valid(text.data() + at, length) == 1) return length;
    return 0;
}

}  // namespace

std::string jsonString(const std::string &text) {
    std::string out = "\"";
    for (size_t at = 0; at < text.size();) {
        const char c = text[at];
        const size_t length = characterAt(text, at);
        if (c == '"' || c == '\\') {
            out.append({'\\', c});
        } else if (static_cast<unsigned char>(c) < ' ') {
            char escape[8];
            (void)snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
            out += escape;
        } else if (length == 0) {
            out += "\\ufffd";
        } else {
            out.append(text, at, length);
        }
        at += std::max<size_t>(length, 1);
    }
    return out += '"';
}

}  // namespace tool
