#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <vex/frame.h>
#include <vex/revision.h>

#include "log/report.h"

namespace {

/// Field by field; where one text ends the versions are equal, so that a shorter one stands for all
/// that it begins.
int compareFields(const char *who, const char *a, const char *b, int fields) {
    if (a == nullptr || b == nullptr)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, -1, "invalid NULL parameter");
    for (;;) {
        char *end_a = nullptr, *end_b = nullptr;
        const int field_a = static_cast<int>(strtoul(a, &end_a, 10));
        const int field_b = static_cast<int>(strtoul(b, &end_b, 10));
        if (field_a != field_b) return field_a < field_b ? -1 : 1;
        if (*end_a == '\0' || *end_b == '\0' || --fields == 0) return 0;
        a = end_a + 1;  // the separator may be any character
        b = end_b + 1;
    }
}

}  // namespace

const char *VexGetVersion() {
    return VEX_INTERFACE_VERSION;
}
const char *VexGetVersionString() {
    return VEX_VERSION_BANNER;
}
const char *GetVEXVersion() {
    return VEX_PRODUCT_VERSION;
}

int VersionCompare(const char *a, const char *b) {
    return compareFields(__func__, a, b, 4);
}

int ProtocolCompare(const char *a, const char *b) {
    return compareFields(__func__, a, b, 5);
}

int CheckVEXVersion(const char *v) {
    if (v == nullptr) return 0;
    // the NUL counts: the whole text must be the same
    constexpr size_t kWhole = sizeof VEX_PRODUCT_VERSION;
    size_t compared = kWhole;
    if (const char *first = std::strchr(v, '.'); first != nullptr)
        if (const char *second = std::strchr(first + 1, '.'); second != nullptr)
            compared = std::min(static_cast<size_t>(second - v) + 1, kWhole);
    return std::strncmp(v, VEX_PRODUCT_VERSION, compared) == 0 ? 1 : 0;
}
