// Integers and hexadecimal text against the standard library and the usual table loop.
#include <charconv>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include <vex/encoding.h>
#include <vex/serialize.h>

#include "peer.h"

namespace {

volatile uint64_t sink;

std::vector<uint64_t> numbersOfEveryLength() {
    std::mt19937_64 random(1);
    std::vector<uint64_t> numbers(1 << 20);
    for (auto &number : numbers) number = random() >> (random() % 64);
    return numbers;
}

/// Two characters per table entry, one entry per byte.
struct PairTable {
    char pairs[256][2];
    PairTable() {
        for (unsigned i = 0; i < 256; ++i) {
            pairs[i][0] = "0123456789abcdef"[i >> 4];
            pairs[i][1] = "0123456789abcdef"[i & 15];
        }
    }
};

void decimal() {
    const auto numbers = numbersOfEveryLength();
    bench::Comparison row{.name = "decimal integer, VexUint64Serialize",
                          .peer = "std::to_chars",
                          .target = "<= 1.5",
                          .units = static_cast<double>(numbers.size()),
                          .byTime = true};
    char buffer[32];
    bench::compare(
        row,
        [&] {
            uint64_t total = 0;
            for (const uint64_t n : numbers)
                total += VexUint64Serialize(buffer, sizeof buffer, n, false);
            sink = total;
        },
        [&] {
            uint64_t total = 0;
            for (const uint64_t n : numbers) {
                char *const end = std::to_chars(buffer, buffer + sizeof buffer, n).ptr;
                *end = '\0';
                total += static_cast<uint64_t>(end - buffer);
            }
            sink = total;
        });
}

void hexadecimal() {
    constexpr size_t kCount = 1 << 16, kSize = 32;
    std::vector<unsigned char> bytes(kCount * kSize);
    std::mt19937 random(1);
    for (auto &byte : bytes) byte = static_cast<unsigned char>(random());
    static const PairTable kTable;
    bench::Comparison row{.name = "32 bytes to hexadecimal, VexBufToSerialize",
                          .peer = "pair-table loop",
                          .target = "<= 1.0",
                          .units = kCount,
                          .byTime = true};
    char text[2 * kSize + 1];
    bench::compare(
        row,
        [&] {
            uint64_t total = 0;
            for (size_t i = 0; i < kCount; ++i) {
                (void)VexBufToSerialize(text, sizeof text, &bytes[i * kSize], kSize);
                total += static_cast<unsigned char>(text[i % 64]);
            }
            sink = total;
        },
        [&] {
            uint64_t total = 0;
            for (size_t i = 0; i < kCount; ++i) {
                for (size_t b = 0; b < kSize; ++b)
                    memcpy(text + 2 * b, kTable.pairs[bytes[i * kSize + b]], 2);
                text[2 * kSize] = '\0';
                total += static_cast<unsigned char>(text[i % 64]);
            }
            sink = total;
        });
}

}  // namespace

int main() {
    decimal();
    hexadecimal();
    return 0;
}
