// The flags word as text.
#include <stdio.h>

#include <vex/log.h>

#include "base/ascii.h"

namespace {

struct Word {
    const char *text;
    int bits;
};

// in the order in which a text is searched; the printer goes the other way, from the largest
constexpr Word kPresets[] = {{"minimal", VEX_LOG_PRESET_MINIMAL},
                             {"short", VEX_LOG_PRESET_SHORT},
                             {"long", VEX_LOG_PRESET_LONG},
                             {"verbose", VEX_LOG_PRESET_VERBOSE},
                             {"full", VEX_LOG_PRESET_FULL}};
constexpr Word kLevels[] = {{"crit", VEX_LOG_CRIT}, {"err", VEX_LOG_ERR},
                            {"warn", VEX_LOG_WARN}, {"auth", VEX_LOG_AUTH},
                            {"info", VEX_LOG_INFO}, {"notice", VEX_LOG_NOTICE},
                            {"bug", VEX_LOG_BUG},   {"trace", VEX_LOG_TRACE}};
constexpr Word kExtras[] = {{"thread", VEX_LOG_THREAD},
                            {"date", VEX_LOG_DATE},
                            {"silent", VEX_LOG_SILENT},
                            {"timing", VEX_LOG_TIMING}};

/// True when @p text holds the lower-case word, in any case.
bool contains(const char *text, const char *word) {
    for (; *text != '\0'; ++text) {
        const char *t = text;
        const char *w = word;
        while (*w != '\0' && vex::ascii::toLower(*t) == *w) ++t, ++w;
        if (*w == '\0') return true;
    }
    return false;
}

template <size_t N>
int bitsOf(const char *text, const Word (&words)[N]) {
    int bits = 0;
    for (const Word &word : words)
        if (contains(text, word.text)) bits |= word.bits;
    return bits;
}

}  // namespace

extern "C" {

int vexLogParseFlagsA(const char *text) {
    if (text == nullptr || *text == '\0' || contains(text, "none")) return 0;
    int flags = 0;
    for (const Word &preset : kPresets) {
        if (flags == 0 && contains(text, preset.text)) flags = preset.bits;
    }
    if (flags == 0) flags = bitsOf(text, kLevels);
    return flags == 0 ? -1 : flags | bitsOf(text, kExtras);
}

const char *vexLogFlagsToString(int flags, char *buf, size_t size) {
    if (buf == nullptr || size <= 3) return "(unknown)";
    const char *name = "none";
    for (const Word &preset : kPresets)
        if ((flags & preset.bits) == preset.bits) name = preset.text;
    (void)snprintf(buf, size, "%s%s%s%s%s", name, (flags & VEX_LOG_THREAD) != 0 ? ", threadid" : "",
                   (flags & VEX_LOG_DATE) != 0 ? ", date" : "",
                   (flags & VEX_LOG_SILENT) != 0 ? ", silent" : "",
                   (flags & VEX_LOG_TIMING) != 0 ? ", timing" : "");
    return buf;
}

}  // extern "C"
