// One address against a text of networks, read anew in each call.
#include <errno.h>
#include <stdio.h>

#include <algorithm>
#include <climits>
#include <string_view>

#include <vex/log.h>
#include <vex/net.h>

#include "base/ascii.h"
#include "log/report.h"

namespace {

constexpr char kName[] = "NetCheckIPRange";
enum Code { kBadAddress = 63, kIncomplete = 64, kBadMask = 65, kNotMultiple = 67, kBadMatch = 68 };

struct Dotted {
    int field[4] = {0, 0, 0, 0};
    int count = 0;

    uint32_t bits() const {
        uint32_t all = 0;
        for (const int one : field) all = all << 8 | static_cast<uint32_t>(one);
        return all;
    }
};

int byteOf(uint32_t mask, int index) {
    return static_cast<int>(mask >> (24 - 8 * index) & 0xff);
}

/// Reads up to four fields of at most 255 from the front of @p text and cuts them off. 0, or the
/// code of what is wrong with it.
int readDotted(std::string_view *text, Dotted *out) {
    for (;;) {
        const bool digit = !text->empty() && vex::ascii::isDigit(text->front());
        if (!digit) {
            const bool missing = out->count == 0 || text->empty() || text->front() == '.';
            return missing ? kIncomplete : kBadAddress;
        }
        if (out->count == 4) return kBadAddress;
        int value = 0;
        for (; !text->empty() && vex::ascii::isDigit(text->front()); text->remove_prefix(1)) {
            value = value * 10 + (text->front() - '0');
            if (value > 255) return kBadAddress;
        }
        out->field[out->count++] = value;
        if (text->empty() || text->front() != '.') return 0;
        text->remove_prefix(1);
    }
}

/// The number behind '/', held inside int; false when something else stands there.
bool readLength(std::string_view text, int *length) {
    const bool negative = !text.empty() && text.front() == '-';
    if (negative) text.remove_prefix(1);
    if (text.empty()) return false;
    int64_t value = 0;
    for (const char c : text) {
        if (!vex::ascii::isDigit(c)) return false;
        value = std::min<int64_t>(value * 10 + (c - '0'), INT_MAX);
    }
    *length = static_cast<int>(negative ? -value : value);
    return true;
}

class RangeCheck {
public:
    RangeCheck(const char *address, bool verbose) : address_(address), verbose_(verbose) {}

    /// False when the address is no address.
    bool readAddress() {
        std::string_view rest = address_;
        int wrong = readDotted(&rest, &wanted_);
        if (wrong == 0 && !rest.empty()) wrong = kBadAddress;
        if (wrong == 0 && wanted_.count < 4) wrong = kIncomplete;
        return wrong == 0 || badAddress(wrong, address_);
    }

    enum Outcome { kMatch, kNoMatch, kWrong };
    Outcome check(std::string_view piece) const {
        Dotted network;
        int length;
        if (!readRange(piece, &network, &length)) return kWrong;
        // whole bytes of 255, then 256 minus 2 to the power of the bits that are left
        const uint32_t mask = length == 0 ? 0 : UINT32_MAX << (32 - length);
        if ((network.bits() & ~mask) != 0) return notMultiple(piece, network, mask);
        if (address_ == nullptr) return kNoMatch;
        if ((wanted_.bits() & mask) == network.bits()) return kMatch;
        if (verbose_)
            ErrorA(kBadMatch, "%s: Bad match: %s outside %i.%i.%i.%i/%i.%i.%i.%i\n", kName,
                   address_, network.field[0], network.field[1], network.field[2], network.field[3],
                   byteOf(mask, 0), byteOf(mask, 1), byteOf(mask, 2), byteOf(mask, 3));
        return kNoMatch;
    }

private:
    /// Tells the first field that has bits outside the mask.
    Outcome notMultiple(std::string_view piece, const Dotted &network, uint32_t mask) const {
        int i = 0;
        while ((network.field[i] & ~byteOf(mask, i)) == 0) ++i;
        if (!verbose_) return refuse(kWrong);
        return VEX_FAIL_AS(kName, kNotMultiple, EINVAL, kWrong,
                           "Incorrect IP range (field %i must be a multiple of %i). "
                           "Actual value: %.*s",
                           i + 1, 256 - byteOf(mask, i), size(piece), piece.data());
    }

    static int size(std::string_view text) {
        return static_cast<int>(std::min<size_t>(text.size(), INT_MAX));
    }

    bool readRange(std::string_view piece, Dotted *network, int *length) const {
        std::string_view rest = piece;
        int code = readDotted(&rest, network);
        *length = network->count * 8;
        if (code == 0 && !rest.empty() &&
            (rest.front() != '/' || !readLength(rest.substr(1), length)))
            code = kBadAddress;
        if (code != 0) return badAddress(code, piece);
        if (*length >= 0 && *length <= 32) return true;
        const std::string_view before = piece.substr(0, piece.find('/'));
        if (!verbose_) return refuse(false);
        return VEX_FAIL_AS(kName, kBadMask, EINVAL, false,
                           "incorrect netmask value, must be between 0 and 32. Actual value: "
                           "%.*s/%i",
                           size(before), before.data(), *length);
    }

    bool badAddress(int code, std::string_view text) const {
        if (!verbose_) return refuse(false);
        return VEX_FAIL_AS(kName, code, EINVAL, false, "%s IP address: %.*s",
                           code == kIncomplete ? "incomplete" : "bad", size(text), text.data());
    }

    template <typename Result>
    static Result refuse(Result failure) {
        errno = EINVAL;
        return failure;
    }

    const char *address_;
    bool verbose_;
    Dotted wanted_;
};

bool checkAll(const char *ranges, const char *address, bool verbose) {
    RangeCheck check(address, verbose);
    if (address != nullptr && !check.readAddress()) return false;
    for (std::string_view rest = ranges; !rest.empty();) {
        const std::string_view piece = rest.substr(0, rest.find(','));
        rest.remove_prefix(std::min(piece.size() + 1, rest.size()));
        const std::string_view trimmed = vex::ascii::trim(piece);
        if (trimmed.empty()) continue;
        const RangeCheck::Outcome outcome = check.check(trimmed);
        if (outcome != RangeCheck::kNoMatch) return outcome == RangeCheck::kMatch;
    }
    return address == nullptr;
}

}  // namespace

int NetCheckIPRange(const char *ranges, const char *address, int verbose) {
    if (ranges == nullptr || *ranges == '\0') {
        if (TraceOn()) __Trace("%s: NULL or empty iprange", kName);
        return 1;
    }
    const bool result = checkAll(ranges, address, verbose != 0);
    if (verbose != 0)
        (void)fflush(stdout);  // what a program printed comes before what it does next
    return result ? 1 : 0;
}
