// Crypt streams against what they are made of, our LZO encoder against liblzo2, Blowfish against
// three libraries.
#include <botan/block_cipher.h>
#include <botan/cipher_mode.h>
#include <gcrypt.h>
#include <lzo/lzo1x.h>
#include <openssl/evp.h>
#include <openssl/provider.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include <vex/blowfish.h>
#include <vex/crypt_stream.h>

#include "crypto/lzo_encoder.h"
#include "peer.h"

namespace {

using Bytes = std::vector<unsigned char>;
namespace fs = std::filesystem;

constexpr size_t kMiB = size_t{1} << 20;
constexpr size_t kPiece = size_t{128} << 10;
constexpr unsigned char kKey[32] = {1, 2, 3};
constexpr unsigned char kIv[16] = {};

void check(bool good, const char *what) {
    if (good) return;
    std::fprintf(stderr, "bench: %s failed\n", what);
    std::exit(1);
}

/// Appends files below @p root whose names hold @p part, in the order of their names, up to @p
/// limit bytes.
void appendFiles(Bytes *to, const char *root, const char *part, size_t limit) {
    std::vector<std::string> paths;
    for (const auto &entry :
         fs::recursive_directory_iterator(root, fs::directory_options::skip_permission_denied))
        if (entry.is_regular_file() && !entry.is_symlink() &&
            entry.path().filename().string().find(part) != std::string::npos)
            paths.push_back(entry.path().string());
    std::sort(paths.begin(), paths.end());
    const size_t end = to->size() + limit;
    for (size_t i = 0; i < paths.size() && to->size() < end; ++i) {
        std::ifstream in(paths[i], std::ios::binary);
        to->insert(to->end(), std::istreambuf_iterator<char>(in), {});
    }
    to->resize(std::min(to->size(), end));
}

/// 64 MiB, half headers and half shared objects; filled up by repetition where the machine has
/// less.
Bytes mixedData() {
    Bytes data;
    appendFiles(&data, "/usr/include", ".h", 32 * kMiB);
    appendFiles(&data, "/usr/lib/x86_64-linux-gnu", ".so", 64 * kMiB - data.size());
    check(data.size() > kMiB, "collecting data");
    for (size_t i = 0; data.size() < 64 * kMiB; ++i) data.push_back(data[i]);
    return data;
}

size_t writeStream(const Bytes &in, size_t length, unsigned long flags, Bytes *out) {
    c_stream_t stream{};
    const VexKey key(kKey);
    check(dcpEncryptInit(&stream, flags, key, VEX_CIPHER_AES_256_CTR) == 0, "dcpEncryptInit");
    stream.next_in = in.data();
    stream.avail_in = static_cast<uint32_t>(length);
    stream.next_out = out->data();
    stream.avail_out = static_cast<uint32_t>(out->size());
    check(dcpEncrypt(&stream) == VEX_STREAM_END, "dcpEncrypt");
    const size_t size = stream.total_out;
    dcpEncryptEnd(&stream);
    return size;
}

void readStream(const Bytes &in, size_t length, Bytes *out) {
    c_stream_t stream{};
    const VexKey key(kKey);
    check(dcpDecryptInit(&stream, key, VEX_CIPHER_AES_256_CTR) == 0, "dcpDecryptInit");
    stream.next_in = in.data();
    stream.avail_in = static_cast<uint32_t>(length);
    stream.next_out = out->data();
    stream.avail_out = static_cast<uint32_t>(out->size());
    check(dcpDecrypt(&stream, 1) == VEX_STREAM_END, "dcpDecrypt");
    dcpDecryptEnd(&stream);
}

struct EvpContext {
    explicit EvpContext(const EVP_CIPHER *cipher, bool encrypt) : context(EVP_CIPHER_CTX_new()) {
        check(EVP_CipherInit_ex(context, cipher, nullptr, kKey, kIv, encrypt ? 1 : 0) == 1,
              "EVP_CipherInit");
    }
    ~EvpContext() { EVP_CIPHER_CTX_free(context); }
    void update(const unsigned char *in, size_t length, unsigned char *out) const {
        int written = 0;
        check(EVP_CipherUpdate(context, out, &written, in, static_cast<int>(length)) == 1,
              "EVP_CipherUpdate");
    }
    EVP_CIPHER_CTX *context;
};

template <typename Work>
void forPieces(size_t length, Work work) {
    for (size_t at = 0; at < length; at += kPiece) work(at, std::min(kPiece, length - at));
}

void compareStreams(const std::string &what, const Bytes &data, size_t length, unsigned long flags,
                    const bench::Comparison &base, const std::function<void()> &write_peer,
                    const std::function<void()> &read_peer) {
    const size_t repeats = 64 * kMiB / length;
    Bytes sealed(length + length / 8 + 4096), opened(length + 64);
    const size_t size = writeStream(data, length, flags, &sealed);
    readStream(sealed, size, &opened);
    check(std::memcmp(opened.data(), data.data(), length) == 0, "round trip");

    const auto repeated = [repeats](const std::function<void()> &work) {
        return [repeats, work] {
            for (size_t i = 0; i < repeats; ++i) work();
        };
    };
    bench::Comparison row = base;
    row.units = static_cast<double>(length * repeats);
    row.name = what + ", write";
    bench::compare(row, repeated([&] { writeStream(data, length, flags, &sealed); }),
                   repeated(write_peer));
    row.name = what + ", read";
    bench::compare(row, repeated([&] { readStream(sealed, size, &opened); }), repeated(read_peer));
}

void plainStreams(const Bytes &data) {
    Bytes out(64 * kMiB + 4096);
    for (const size_t length : {kMiB, 64 * kMiB}) {
        const std::string size = std::to_string(length / kMiB) + " MiB";
        const auto evp = [&] {
            const EvpContext context(EVP_aes_256_ctr(), true);
            forPieces(length, [&](size_t at, size_t n) {
                context.update(data.data() + at, n, out.data() + at);
            });
        };
        compareStreams("stream, AES-256-CTR, " + size, data, length, VEX_STREAM_NO_COMPRESSION,
                       {.name = {}, .peer = "EVP", .target = ">= 0.80"}, evp, evp);
        const auto copy = [&] { std::memcpy(out.data(), data.data(), length); };
        compareStreams("stream, clear, " + size, data, length,
                       VEX_STREAM_NO_COMPRESSION | VEX_STREAM_NO_ENCRYPTION,
                       {.name = {}, .peer = "memcpy", .target = ">= 0.80"}, copy, copy);
    }
}

/// Pieces compressed by a peer: where each begins in the output, with the end behind the last.
struct Pieces {
    Bytes bytes;
    std::vector<size_t> starts;
};

void lzoStreams(const Bytes &data) {
    Bytes work(LZO1X_1_MEM_COMPRESS), scratch(2 * kPiece), opened(data.size());
    Pieces packed{Bytes(data.size() * 2), {}};
    const auto write = [&] {
        const EvpContext context(EVP_aes_256_ctr(), true);
        packed.starts.assign(1, 0);
        forPieces(data.size(), [&](size_t at, size_t n) {
            lzo_uint size = 0;
            lzo1x_1_compress(data.data() + at, n, scratch.data(), &size, work.data());
            context.update(scratch.data(), size, packed.bytes.data() + packed.starts.back());
            packed.starts.push_back(packed.starts.back() + size);
        });
    };
    const auto read = [&] {
        const EvpContext context(EVP_aes_256_ctr(), false);
        forPieces(data.size(), [&](size_t at, size_t n) {
            const size_t start = packed.starts[at / kPiece],
                         size = packed.starts[at / kPiece + 1] - start;
            context.update(packed.bytes.data() + start, size, scratch.data());
            lzo_uint length = n;
            check(lzo1x_decompress_safe(scratch.data(), size, opened.data() + at, &length,
                                        nullptr) == 0,
                  "LZO");
        });
    };
    write();
    compareStreams("stream, LZO + AES-256-CTR, mixed data", data, data.size(), 0,
                   {.name = {}, .peer = "liblzo2 + EVP", .target = ">= 0.97"}, write, read);
}

void deflateStreams(const Bytes &data) {
    constexpr size_t kLength = 16 * kMiB;
    const size_t start = 24 * kMiB;  // where headers end and shared objects begin
    const Bytes part(data.begin() + start, data.begin() + static_cast<ptrdiff_t>(start + kLength));
    Pieces packed{Bytes(2 * kLength), {}};
    Bytes opened(kLength);
    const auto write = [&] {
        z_stream z{};
        deflateInit2(&z, 5, Z_DEFLATED, -15, 9, Z_DEFAULT_STRATEGY);
        packed.starts.assign(1, 0);
        forPieces(kLength, [&](size_t at, size_t n) {
            z.next_in = const_cast<unsigned char *>(part.data() + at);
            z.avail_in = static_cast<uInt>(n);
            z.next_out = packed.bytes.data() + packed.starts.back();
            z.avail_out = 2 * kPiece;
            check(deflate(&z, Z_FINISH) == Z_STREAM_END, "deflate");
            packed.starts.push_back(packed.starts.back() + z.total_out);
            deflateReset(&z);
        });
        deflateEnd(&z);
    };
    const auto read = [&] {
        z_stream z{};
        inflateInit2(&z, -15);
        forPieces(kLength, [&](size_t at, size_t n) {
            const size_t from = packed.starts[at / kPiece];
            z.next_in = packed.bytes.data() + from;
            z.avail_in = static_cast<uInt>(packed.starts[at / kPiece + 1] - from);
            z.next_out = opened.data() + at;
            z.avail_out = static_cast<uInt>(n);
            check(inflate(&z, Z_FINISH) == Z_STREAM_END, "inflate");
            inflateReset(&z);
        });
        inflateEnd(&z);
    };
    write();
    bench::Comparison base{.name = {}, .peer = "zlib", .target = ">= 0.97"};
    base.rounds = 5;
    compareStreams("stream, deflate default, mixed data", part, kLength,
                   VEX_STREAM_NO_ENCRYPTION | VEX_STREAM_DEFLATE, base, write, read);
}

void lzoEncoder(const Bytes &data) {
    struct Peer {
        unsigned bits;
        const char *name;
        int (*compress)(const lzo_bytep, lzo_uint, lzo_bytep, lzo_uintp, lzo_voidp);
    };
    static const Peer kPeers[] = {{11, "lzo1x_1_11", lzo1x_1_11_compress},
                                  {12, "lzo1x_1_12", lzo1x_1_12_compress},
                                  {13, "lzo1x_1", lzo1x_1_compress},
                                  {14, "lzo1x_1", lzo1x_1_compress}};
    Bytes work(size_t{1} << 18), scratch(2 * kPiece);
    for (const auto &peer : kPeers) {
        size_t ours = 0, theirs = 0;
        const auto own = [&] {
            ours = 0;
            forPieces(data.size(), [&](size_t at, size_t n) {
                ours += vex::crypto::lzoEncode(peer.bits, data.data() + at, n, scratch.data(),
                                               work.data());
            });
        };
        const auto library = [&] {
            theirs = 0;
            forPieces(data.size(), [&](size_t at, size_t n) {
                lzo_uint size = 0;
                peer.compress(data.data() + at, n, scratch.data(), &size, work.data());
                theirs += size;
            });
        };
        bench::compare({.name = "LZO1X-1 encoder, level " + std::to_string(peer.bits),
                        .peer = peer.name,
                        .target = ">= 0.85",
                        .units = static_cast<double>(data.size())},
                       own, library);
        std::printf("    compressed to %.4f of the size, %s to %.4f\n",
                    static_cast<double>(ours) / static_cast<double>(data.size()), peer.name,
                    static_cast<double>(theirs) / static_cast<double>(data.size()));
    }
}

using Cipher64 = std::function<void(const unsigned char *, unsigned char *, size_t)>;
struct BlowfishPeer {
    const char *name;
    Cipher64 work;
};

BlowfishPeer openSslBlowfish(const char *mode, bool encrypt) {
    static OSSL_PROVIDER *const legacy = OSSL_PROVIDER_load(nullptr, "legacy");
    check(legacy != nullptr && OSSL_PROVIDER_load(nullptr, "default") != nullptr,
          "loading OpenSSL's legacy provider");
    const std::shared_ptr<EVP_CIPHER_CTX> context(EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
    const std::shared_ptr<EVP_CIPHER> cipher(EVP_CIPHER_fetch(nullptr, mode, nullptr),
                                             EVP_CIPHER_free);
    const int direction = encrypt ? 1 : 0;
    check(EVP_CipherInit_ex2(context.get(), cipher.get(), nullptr, nullptr, direction, nullptr) ==
                  1 &&
              EVP_CIPHER_CTX_set_key_length(context.get(), 32) == 1 &&
              EVP_CipherInit_ex2(context.get(), nullptr, kKey, kIv, direction, nullptr) == 1,
          "OpenSSL's Blowfish");
    EVP_CIPHER_CTX_set_padding(context.get(), 0);
    return {"OpenSSL", [context](const unsigned char *in, unsigned char *out, size_t n) {
                int written = 0;
                EVP_CipherUpdate(context.get(), out, &written, in, static_cast<int>(n));
            }};
}

BlowfishPeer gcryptBlowfish(int mode, bool encrypt) {
    gcry_check_version(nullptr);
    gcry_cipher_hd_t handle;  // lives as long as the program
    check(gcry_cipher_open(&handle, GCRY_CIPHER_BLOWFISH, mode, 0) == 0 &&
              gcry_cipher_setkey(handle, kKey, 16) == 0 && gcry_cipher_setiv(handle, kIv, 8) == 0,
          "libgcrypt's Blowfish");
    return {"libgcrypt", [handle, encrypt](const unsigned char *in, unsigned char *out, size_t n) {
                encrypt ? gcry_cipher_encrypt(handle, out, n, in, n)
                        : gcry_cipher_decrypt(handle, out, n, in, n);
            }};
}

BlowfishPeer botanBlocks(bool encrypt) {
    const std::shared_ptr<Botan::BlockCipher> cipher(Botan::BlockCipher::create("Blowfish"));
    cipher->set_key(kKey, sizeof kKey);
    return {"Botan", [cipher, encrypt](const unsigned char *in, unsigned char *out, size_t n) {
                encrypt ? cipher->encrypt_n(in, out, n / 8) : cipher->decrypt_n(in, out, n / 8);
            }};
}

BlowfishPeer botanChain() {
    const std::shared_ptr<Botan::Cipher_Mode> mode(
        Botan::Cipher_Mode::create("Blowfish/CBC/NoPadding", Botan::DECRYPTION));
    mode->set_key(kKey, sizeof kKey);
    mode->start(kIv, 8);
    return {"Botan", [mode](const unsigned char * /*in*/, unsigned char *out, size_t n) {
                mode->process(out, n);
            }};
}

void blowfish(const Bytes &data) {
    using Function = int (*)(BlowfishContext *, const void *, void *, int);
    struct Row {
        const char *name, *target;
        Function ours;
        std::vector<BlowfishPeer> peers;
    };
    const Row rows[] = {
        {"Blowfish ECB encryption",
         ">= 1.10",
         BlowfishEncodeECB,
         {openSslBlowfish("BF-ECB", true), gcryptBlowfish(GCRY_CIPHER_MODE_ECB, true),
          botanBlocks(true)}},
        {"Blowfish ECB decryption",
         ">= 1.10",
         BlowfishDecodeECB,
         {openSslBlowfish("BF-ECB", false), gcryptBlowfish(GCRY_CIPHER_MODE_ECB, false),
          botanBlocks(false)}},
        {"Blowfish CBC decryption",
         ">= 1.10",
         BlowfishDecodeCBC,
         {openSslBlowfish("BF-CBC", false), gcryptBlowfish(GCRY_CIPHER_MODE_CBC, false),
          botanChain()}},
        {"Blowfish CBC encryption",
         ">= 1.00",
         BlowfishEncodeCBC,
         {openSslBlowfish("BF-CBC", true)}},
    };
    constexpr size_t kLength = 8 * kMiB;
    Bytes out(kLength);
    BlowfishContext state{};
    BlowfishInit(&state, kKey, sizeof kKey);
    for (const auto &row : rows) {
        for (const auto &peer : row.peers)
            bench::compare(
                {.name = row.name, .peer = peer.name, .target = row.target, .units = kLength},
                [&] { row.ours(&state, data.data(), out.data(), kLength); },
                [&] { peer.work(data.data(), out.data(), kLength); });
    }
}

}  // namespace

int main() {
    check(lzo_init() == LZO_E_OK, "lzo_init");
    const Bytes data = mixedData();
    plainStreams(data);
    lzoStreams(data);
    deflateStreams(data);
    lzoEncoder(data);
    blowfish(data);
    return 0;
}
