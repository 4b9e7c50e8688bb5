#include <cstring>

#include <vex/blowfish.h>

#include "crypto/blowfish_bulk.h"
#include "crypto/blowfish_rounds.h"
#include "crypto/blowfish_tables.h"
#include "log/report.h"

namespace {

using vex::crypto::Direction;
using vex::crypto::kBlowfishBlock;

/// Writes the input, zero-padded to whole blocks, to out; returns the padded length.
size_t copyPadded(const void *in, void *out, int length) {
    const auto used = static_cast<size_t>(length);
    const auto padded = static_cast<size_t>(BlowfishGetOutputLength(length));
    if (in != out) std::memmove(out, in, used);
    std::memset(static_cast<unsigned char *>(out) + used, 0, padded - used);
    return padded;
}

bool overlap(const void *in, const void *out, int length) {
    const auto a = reinterpret_cast<uintptr_t>(in), b = reinterpret_cast<uintptr_t>(out);
    return in != out && (a < b ? b - a : a - b) < static_cast<size_t>(length) + kBlowfishBlock;
}

/// Runs work(from, to, blocks) once over the whole blocks, straight from in to out, and once over a
/// padded last block. Regions that overlap without being equal are first moved together.
template <typename Work>
int forBlocks(const void *in, void *out, int length, Work work) {
    if (length <= 0) return 0;
    auto *to = static_cast<unsigned char *>(out);
    const auto *from = static_cast<const unsigned char *>(in);
    if (overlap(in, out, length)) {
        const size_t padded = copyPadded(in, out, length);
        work(to, to, padded / kBlowfishBlock);
        return static_cast<int>(padded);
    }
    const int tail = length % static_cast<int>(kBlowfishBlock);
    const auto whole = static_cast<size_t>(length - tail);
    work(from, to, whole / kBlowfishBlock);
    if (tail == 0) return length;
    copyPadded(from + whole, to + whole, tail);
    work(to + whole, to + whole, 1);
    return static_cast<int>(whole + kBlowfishBlock);
}

void encryptChain(BlowfishContext *state, const unsigned char *in, unsigned char *out,
                  size_t blocks) {
    uint32_t l[1] = {state->chain[0]}, r[1] = {state->chain[1]};
    for (size_t at = 0; at < blocks * kBlowfishBlock; at += kBlowfishBlock) {
        l[0] ^= vex::loadBig32(in + at);
        r[0] ^= vex::loadBig32(in + at + 4);
        vex::crypto::blowfishRounds<Direction::kEncrypt>(*state, l, r);
        vex::storeBig32(out + at, l[0]);
        vex::storeBig32(out + at + 4, r[0]);
    }
    state->chain[0] = l[0];
    state->chain[1] = r[0];
}

int invalidMode(const char *who, uint32_t mode) {
    vex::log::failure(errno, errno, who, "Invalid mode: %u", mode);
    errno = EINVAL;
    return -1;
}

}  // namespace

int BlowfishInit(BlowfishContext *state, const unsigned char *key, size_t keyLength) {
    if (state == nullptr || key == nullptr || keyLength == 0) {
        errno = EINVAL;
        return 0;
    }
    std::memcpy(state->S, vex::crypto::kPiS, sizeof state->S);
    size_t next = 0;
    for (size_t i = 0; i < 18; ++i) {
        uint32_t word = 0;
        for (int byte = 0; byte < 4; ++byte) {
            word = word << 8 | key[next];
            next = next + 1 == keyLength ? 0 : next + 1;
        }
        state->P[i] = vex::crypto::kPiP[i] ^ word;
    }
    uint32_t l[1] = {0}, r[1] = {0};
    const auto replace = [&](uint32_t *words, size_t count) {
        for (size_t i = 0; i < count; i += 2) {
            vex::crypto::blowfishRounds<Direction::kEncrypt>(*state, l, r);
            words[i] = l[0];
            words[i + 1] = r[0];
        }
    };
    replace(state->P, 18);
    for (auto &box : state->S) replace(box, 256);
    return 1;
}

int BlowfishInitCBC(BlowfishContext *state, const char *key, size_t keyLength, int direction) {
    if (BlowfishInit(state, reinterpret_cast<const unsigned char *>(key), keyLength) != 1)
        return VEX_FAIL_AS(__func__, EFAULT, errno, 0, "BlowfishInit failed to initialize");
    state->chain[0] = state->chain[1] = 0;
    state->mode = direction == 1 ? VEX_BLOWFISH_CBC_DECODE : VEX_BLOWFISH_CBC_ENCODE;
    return 1;
}

int BlowfishEncodeECB(BlowfishContext *state, const void *in, void *out, int length) {
    return forBlocks(in, out, length, [state](const auto *from, auto *to, size_t blocks) {
        vex::crypto::blowfishEncryptBulk(*state, from, to, blocks);
    });
}

int BlowfishDecodeECB(BlowfishContext *state, const void *in, void *out, int length) {
    return forBlocks(in, out, length, [state](const auto *from, auto *to, size_t blocks) {
        vex::crypto::blowfishDecryptBulk(*state, from, to, blocks);
    });
}

int BlowfishEncodeCBC(BlowfishContext *state, const void *in, void *out, int length) {
    return forBlocks(in, out, length, [state](const auto *from, auto *to, size_t blocks) {
        encryptChain(state, from, to, blocks);
    });
}

int BlowfishDecodeCBC(BlowfishContext *state, const void *in, void *out, int length) {
    return forBlocks(in, out, length, [state](const auto *from, auto *to, size_t blocks) {
        vex::crypto::blowfishDecryptChain(state, from, to, blocks);
    });
}

int BlowfishEncode(BlowfishContext *state, const void *in, void *out, int length) {
    if (state == nullptr) return VEX_FAIL(EINVAL, -1, "Invalid parameter: Null context");
    if (state->mode == VEX_BLOWFISH_ECB) return BlowfishEncodeECB(state, in, out, length);
    if (state->mode == VEX_BLOWFISH_CBC_ENCODE) return BlowfishEncodeCBC(state, in, out, length);
    return invalidMode(__func__, state->mode);
}

int BlowfishDecode(BlowfishContext *state, const void *in, void *out, int length) {
    if (state == nullptr) return VEX_FAIL(EINVAL, -1, "Invalid parameter: Null context");
    if (state->mode == VEX_BLOWFISH_ECB) return BlowfishDecodeECB(state, in, out, length);
    if (state->mode == VEX_BLOWFISH_CBC_DECODE) return BlowfishDecodeCBC(state, in, out, length);
    return invalidMode(__func__, state->mode);
}

int BlowfishGetOutputLength(int length) {
    return (length + 7) & ~7;
}
