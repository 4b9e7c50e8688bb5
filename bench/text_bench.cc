// Integers and hexadecimal text against the standard library and the usual table loop; Base64 and
// hexadecimal of large buffers against the fastest of OpenSSL, libsodium and GLib; UTF-8 against
// iconv.
#include <glib.h>
#include <iconv.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <sodium.h>

#include <charconv>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <utility>
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

using Work = std::function<void()>;

/// The peer that takes least time for its work, found in five rounds each.
std::pair<std::string, Work> fastest(const std::vector<std::pair<std::string, Work>> &peers) {
    size_t best = 0;
    double least = 1e9;
    for (size_t i = 0; i < peers.size(); ++i) {
        std::vector<double> times;
        for (int round = 0; round < 5; ++round) times.push_back(bench::seconds(peers[i].second));
        if (bench::median(times) < least) least = bench::median(times), best = i;
    }
    return peers[best];
}

constexpr size_t kLarge = 1 << 20;

void large(const std::string &name, double bytes, const Work &ours,
           const std::vector<std::pair<std::string, Work>> &peers) {
    const auto [peer, theirs] = fastest(peers);
    bench::compare({.name = name, .peer = peer, .target = ">= 2.0", .units = bytes, .rounds = 15},
                   ours, theirs);
}

void base64() {
    std::vector<unsigned char> bytes(kLarge), back(kLarge + 3);
    std::mt19937 random(1);
    for (auto &byte : bytes) byte = static_cast<unsigned char>(random());
    std::vector<char> text(2 * kLarge);
    auto *const out = reinterpret_cast<unsigned char *>(text.data());
    const auto room = static_cast<unsigned>(text.size());
    gint state = 0, save = 0;
    guint partial = 0;
    const int kind = sodium_base64_VARIANT_ORIGINAL;
    large("Base64 of 1 MiB, encode", kLarge,
          [&] {
              sink = static_cast<uint64_t>(Base64Encode(bytes.data(), kLarge, text.data(), room));
          },
          {{"OpenSSL", [&] { EVP_EncodeBlock(out, bytes.data(), kLarge); }},
           {"libsodium",
            [&] { sodium_bin2base64(text.data(), text.size(), bytes.data(), kLarge, kind); }},
           {"GLib", [&] {
                g_base64_encode_step(bytes.data(), kLarge, FALSE, text.data(), &state, &save);
            }}});
    const int length = Base64Encode(bytes.data(), kLarge, text.data(), room);
    size_t used = 0;
    large("Base64 of 1 MiB, decode", kLarge,
          [&] { sink = static_cast<uint64_t>(Base64Decode(text.data(), back.data(), kLarge)); },
          {{"OpenSSL", [&] { EVP_DecodeBlock(back.data(), out, length); }},
           {"libsodium",
            [&] {
                sodium_base642bin(back.data(), back.size(), text.data(),
                                  static_cast<size_t>(length), nullptr, &used, nullptr, kind);
            }},
           {"GLib", [&] {
                state = 0, partial = 0;
                g_base64_decode_step(text.data(), static_cast<gsize>(length), back.data(), &state,
                                     &partial);
            }}});
}

void largeHexadecimal() {
    std::vector<unsigned char> bytes(kLarge), back(kLarge);
    std::mt19937 random(1);
    for (auto &byte : bytes) byte = static_cast<unsigned char>(random());
    std::vector<char> text(2 * kLarge + 1);
    const auto room = static_cast<unsigned>(text.size());
    size_t used = 0;
    large("hexadecimal of 1 MiB, encode", kLarge,
          [&] { sink = static_cast<uint64_t>(HexEncode(bytes.data(), kLarge, text.data(), room)); },
          {{"OpenSSL",
            [&] {
                OPENSSL_buf2hexstr_ex(text.data(), text.size(), &used, bytes.data(), kLarge, '\0');
            }},
           {"libsodium", [&] { sodium_bin2hex(text.data(), text.size(), bytes.data(), kLarge); }}});
    (void)HexEncode(bytes.data(), kLarge, text.data(), room);
    large("hexadecimal of 1 MiB, decode", kLarge,
          [&] { sink = static_cast<uint64_t>(HexDecode(text.data(), back.data(), kLarge)); },
          {{"OpenSSL",
            [&] { OPENSSL_hexstr2buf_ex(back.data(), back.size(), &used, text.data(), '\0'); }},
           {"libsodium", [&] {
                sodium_hex2bin(back.data(), back.size(), text.data(), 2 * kLarge, nullptr, &used,
                               nullptr);
            }}});
}

constexpr size_t kDocument = 32 << 10;

/// A text of the size of a document, of whose characters one in @p rarity is not ASCII.
std::string someText(unsigned rarity) {
    static const char *const kOthers[] = {"\xc3\xa4", "\xd0\xb4", "\xe2\x82\xac", "\xe6\x97\xa5",
                                          "\xf0\x9f\x92\xbe"};
    std::mt19937 random(1);
    std::string text;
    while (text.size() < kDocument) {
        if (random() % rarity == 0)
            text += kOthers[random() % 5];
        else
            text += static_cast<char>('a' + random() % 26);
    }
    return text;
}

void utf8() {
    const iconv_t to_wide = iconv_open("WCHAR_T", "UTF-8"), check = iconv_open("UTF-8", "UTF-8");
    std::vector<wchar_t> wide(2 * kDocument);
    for (const auto &[kind, rarity] : {std::pair("ASCII-heavy", 50U), std::pair("mixed", 2U)}) {
        std::string text = someText(rarity);
        const auto convert = [&](iconv_t converter) {
            char *in = text.data(), *out = reinterpret_cast<char *>(wide.data());
            size_t left = text.size(), room = wide.size() * sizeof(wchar_t);
            sink = iconv(converter, &in, &left, &out, &room);
        };
        constexpr int kTimes = 32;
        const auto bytes = static_cast<double>(kTimes * text.size());
        const auto repeat = [](const auto &work) {
            return [&work] {
                for (int i = 0; i < kTimes; ++i) work();
            };
        };
        const auto check_ours = [&] {
            sink = static_cast<uint64_t>(vex_utf8_valid(text.data(), text.size()));
        };
        const auto wide_ours = [&] {
            sink = static_cast<uint64_t>(vex_utf8_to_wcs(text.c_str(), wide.data(), wide.size()));
        };
        const auto check_theirs = [&] { convert(check); };
        const auto wide_theirs = [&] { convert(to_wide); };
        large(std::string("UTF-8 check, ") + kind, bytes, repeat(check_ours),
              {{"iconv", repeat(check_theirs)}});
        large(std::string("UTF-8 to wide, ") + kind, bytes, repeat(wide_ours),
              {{"iconv", repeat(wide_theirs)}});
    }
    iconv_close(to_wide);
    iconv_close(check);
}

}  // namespace

int main() {
    if (sodium_init() < 0) return 1;
    decimal();
    hexadecimal();
    base64();
    largeHexadecimal();
    utf8();
    return 0;
}
