#include <lzo/lzo1x.h>

#include "crypto/lzo_chunk.h"

namespace vex::crypto {
namespace {

/// Walks the instructions of LZO1X data that has been decoded without error, to find where it ends:
/// the decoder does not say how much of its input it took.
class InstructionWalk {
public:
    explicit InstructionWalk(const unsigned char *in) : at_(in), start_(in) {}

    size_t length() {
        if (*at_ > 17) openingRun();
        while (!ended_) {
            const unsigned code = *at_++;
            if (code < 16 && literals_ == 0) {
                at_ += 3 + extended(code, 15);
                literals_ = kRun;
            } else {
                skipMatch(code);
            }
        }
        return static_cast<size_t>(at_ - start_);
    }

private:
    static constexpr unsigned kRun = 4;

    void openingRun() {
        const unsigned count = *at_++ - 17U;
        at_ += count;
        literals_ = count < kRun ? count : kRun;
    }
    /// A length field: its value, or when that is 0 its largest value and the bytes that follow.
    size_t extended(size_t value, size_t largest) {
        if (value != 0) return value;
        for (value = largest; *at_ == 0; ++at_) value += 255;
        return value + *at_++;
    }
    /// Skips a match and the 0 to 3 literals behind it. One of distance 0 is the end.
    void skipMatch(unsigned code) {
        if (code >= 64 || code < 16) {
            literals_ = code & 3;
            at_ += 1 + literals_;
            return;
        }
        (void)(code >= 32 ? extended(code & 31, 31) : extended(code & 7, 7));
        literals_ = *at_ & 3U;
        ended_ = code < 24 && at_[0] < 4 && at_[1] == 0;
        at_ += ended_ ? 2 : 2 + literals_;
    }

    unsigned literals_ = 0;  ///< behind the last match: 0 to 3; kRun behind a run of its own
    bool ended_ = false;
    const unsigned char *at_;
    const unsigned char *start_;
};

}  // namespace

bool lzoCanExpandTo(size_t size, size_t length) {
    return length <= 255 * size + 64;
}

bool lzoDecompress(const unsigned char *in, size_t size, unsigned char *out, size_t length,
                   size_t *used) {
    lzo_uint decoded = length;
    const int result = lzo1x_decompress_safe(in, size, out, &decoded, nullptr);
    if ((result != LZO_E_OK && result != LZO_E_INPUT_NOT_CONSUMED) || decoded != length)
        return false;
    *used = result == LZO_E_OK ? size : InstructionWalk(in).length();
    return true;
}

}  // namespace vex::crypto
