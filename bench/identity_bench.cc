// Digests against OpenSSL and sha512sum, the Bloom filter against a filter that hashes once per
// probe.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/evp.h>
#include <openssl/md5.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <vex/bloom_filter.h>
#include <vex/digest.h>

#include "peer.h"

namespace {

volatile uint64_t sink;

void md5(size_t size, const std::vector<unsigned char> &data) {
    const size_t rounds = (64UL << 20) / (size + 256);
    bench::Comparison row{.name = "MD5 of " + std::to_string(size) + " B",
                          .peer = "OpenSSL EVP, prepared context",
                          .target = ">= 0.97",
                          .units = static_cast<double>(rounds * size)};
    unsigned char digest[EVP_MAX_MD_SIZE];
    EVP_MD *const kind = EVP_MD_fetch(nullptr, "MD5", nullptr);
    EVP_MD_CTX *const context = EVP_MD_CTX_new();
    const auto ours = [&] {
        for (size_t i = 0; i < rounds; ++i) (void)MD5DigestFromData_r(data.data(), size, digest);
    };
    bench::compare(row, ours, [&] {
        for (size_t i = 0; i < rounds; ++i) {
            EVP_DigestInit_ex2(context, kind, nullptr);
            EVP_DigestUpdate(context, data.data(), size);
            EVP_DigestFinal_ex(context, digest, nullptr);
        }
    });
    row.peer = "OpenSSL MD5_Update";
    row.target = "for comparison";
    bench::compare(row, ours, [&] {
        for (size_t i = 0; i < rounds; ++i) {
            MD5_CTX state;
            MD5_Init(&state);
            MD5_Update(&state, data.data(), size);
            MD5_Final(digest, &state);
        }
    });
    EVP_MD_CTX_free(context);
    EVP_MD_free(kind);
}

void sha512_256(size_t size, const std::vector<unsigned char> &data) {
    const size_t rounds = (64UL << 20) / (size + 256);
    bench::Comparison row{.name = "SHA-512/256 of " + std::to_string(size) + " B",
                          .peer = "OpenSSL EVP, prepared context",
                          .target = ">= 0.97",
                          .units = static_cast<double>(rounds * size)};
    unsigned char digest[EVP_MAX_MD_SIZE];
    EVP_MD *const kind = EVP_MD_fetch(nullptr, "SHA512-256", nullptr);
    EVP_MD_CTX *const context = EVP_MD_CTX_new();
    bench::compare(
        row,
        [&] {
            for (size_t i = 0; i < rounds; ++i) {
                SHA256Context state;
                SHA256Initialize(&state);
                SHA256Append(&state, data.data(), static_cast<uint32_t>(size));
                SHA256Finalize(&state);
                digest[0] = state.digest[0];
            }
        },
        [&] {
            for (size_t i = 0; i < rounds; ++i) {
                EVP_DigestInit_ex2(context, kind, nullptr);
                EVP_DigestUpdate(context, data.data(), size);
                EVP_DigestFinal_ex(context, digest, nullptr);
            }
        });
    EVP_MD_CTX_free(context);
    EVP_MD_free(kind);
}

void fileDigest() {
    char path[] = "/tmp/vexbench-XXXXXX";
    const int fd = mkstemp(path);
    std::vector<unsigned char> block(1 << 20);
    std::mt19937_64 random(1);
    constexpr size_t kBlocks = 512;
    for (size_t i = 0; i < kBlocks; ++i) {
        for (size_t at = 0; at < block.size(); at += 8) {
            const uint64_t word = random();
            memcpy(&block[at], &word, 8);
        }
        if (write(fd, block.data(), block.size()) < 0) perror("write");
    }
    (void)close(fd);
    const std::string command = std::string("sha512sum ") + path + " > /dev/null";
    bench::Comparison row{.name = "digest of a file of 512 MiB, SHA256FromFile_r",
                          .peer = "sha512sum",
                          .target = ">= 1.5",
                          .units = static_cast<double>(kBlocks * block.size()),
                          .rounds = 5};
    char text[65];
    bench::compare(
        row, [&] { (void)SHA256FromFile_r(path, text, sizeof text); },
        [&] {
            if (system(command.c_str()) != 0) perror("sha512sum");
        });
    (void)unlink(path);
}

/// MurmurHash2 with 64-bit words, one computation per probe with the probe's number as its seed.
uint64_t murmur(const unsigned char *data, size_t size, uint64_t seed) {
    constexpr uint64_t kMultiplier = 0xc6a4a7935bd1e995;
    uint64_t hash = seed ^ (size * kMultiplier);
    for (size_t at = 0; at + 8 <= size; at += 8) {
        uint64_t word;
        memcpy(&word, data + at, 8);
        word *= kMultiplier;
        word ^= word >> 47;
        word *= kMultiplier;
        hash = (hash ^ word) * kMultiplier;
    }
    hash ^= hash >> 47;
    hash *= kMultiplier;
    return hash ^ hash >> 47;
}

void bloom(unsigned long megabytes) {
    const unsigned long size = megabytes << 20, bits = size * 8;
    constexpr size_t kDigests = 1 << 18;
    std::vector<crfp_digest_t> digests(kDigests);
    std::mt19937_64 random(2);
    for (auto &digest : digests)
        for (auto &byte : digest.bytes) byte = static_cast<unsigned char>(random());
    BloomFilter filter(size, 0.01);
    std::vector<unsigned char> peer(size);
    bench::Comparison row{.name = "Bloom filter of " + std::to_string(megabytes) + " MiB, insert",
                          .peer = "one hash per probe",
                          .target = "<= 0.5",
                          .units = kDigests,
                          .byTime = true};
    bench::compare(
        row,
        [&] {
            for (const auto &digest : digests) filter.Insert(digest);
        },
        [&] {
            for (const auto &digest : digests)
                for (unsigned i = 0; i < 7; ++i) {
                    const uint64_t bit = murmur(digest.bytes, 32, i) % bits;
                    peer[bit / 8] = static_cast<unsigned char>(peer[bit / 8] | 1U << (bit % 8));
                }
        });
    row.name = "Bloom filter of " + std::to_string(megabytes) + " MiB, match";
    bench::compare(
        row,
        [&] {
            uint64_t matches = 0;
            for (const auto &digest : digests) matches += filter.Matches(digest) ? 1 : 0;
            sink = matches;
        },
        [&] {
            uint64_t matches = 0;
            for (const auto &digest : digests) {
                bool all = true;
                for (unsigned i = 0; i < 7 && all; ++i) {
                    const uint64_t bit = murmur(digest.bytes, 32, i) % bits;
                    all = (peer[bit / 8] >> (bit % 8) & 1) != 0;
                }
                matches += all ? 1 : 0;
            }
            sink = matches;
        });
    std::vector<double> times;
    for (int i = 0; i < 5; ++i)
        times.push_back(bench::seconds([&] { sink = filter.GetBitsSet(); }));
    std::printf("Bloom filter of %lu MiB, GetBitsSet %.1f GB/s (target >= 8)\n", megabytes,
                static_cast<double>(size) / bench::median(times) * 1e-9);
}

}  // namespace

int main() {
    std::vector<unsigned char> data(1 << 20, 0x5a);
    for (const size_t size : {64UL, 4096UL, 1UL << 20}) md5(size, data);
    for (const size_t size : {64UL, 4096UL, 1UL << 20}) sha512_256(size, data);
    fileDigest();
    for (const unsigned long megabytes : {1UL, 64UL, 512UL}) bloom(megabytes);
    return 0;
}
