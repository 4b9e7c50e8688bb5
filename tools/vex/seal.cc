#include <cstring>

#include "command.h"
#include "input_file.h"
#include "key_file.h"
#include "output_file.h"
#include "stream_file.h"

namespace tool {
namespace {

constexpr uint16_t kLeastLzoLevel = 6, kMostLzoLevel = 16, kMostDeflateLevel = 10;

struct SealOptions {
    char *key_file = nullptr, *cipher = nullptr, *compress = nullptr;
    bool no_encrypt = false;
    uint16_t level = 0, window = 0;

    opt_option key_file_option{"file that holds the key",
                               nullptr,
                               0,
                               "key-file",
                               OPT_TYPE_RAW_STRING,
                               "FILE",
                               nullptr,
                               nullptr,
                               nullptr,
                               0,
                               &key_file};
    opt_option cipher_option{"blowfish, aes-256-cfb, aes-256-ofb or aes-256-ctr",
                             nullptr,
                             0,
                             "cipher",
                             OPT_TYPE_RAW_STRING,
                             "NAME",
                             "aes-256-ctr",
                             nullptr,
                             nullptr,
                             0,
                             &cipher};
    opt_option compress_option{"lzo, deflate or none",
                               nullptr,
                               0,
                               "compress",
                               OPT_TYPE_RAW_STRING,
                               "NAME",
                               "lzo",
                               nullptr,
                               nullptr,
                               0,
                               &compress};
    opt_option no_encrypt_option{"leave the data readable; needs no key",
                                 nullptr,
                                 0,
                                 "no-encrypt",
                                 OPT_TYPE_FLAG_ON,
                                 nullptr,
                                 nullptr,
                                 nullptr,
                                 nullptr,
                                 0,
                                 &no_encrypt};
    opt_option level_option{"effort: 6 to 16 for lzo, 1 to 10 for deflate",
                            nullptr,
                            0,
                            "level",
                            OPT_TYPE_NUMBER16,
                            nullptr,
                            nullptr,
                            nullptr,
                            nullptr,
                            0,
                            &level};
    opt_option window_option{"size of a block as a power of two, 12 to 22",
                             nullptr,
                             0,
                             "window",
                             OPT_TYPE_NUMBER16,
                             nullptr,
                             nullptr,
                             nullptr,
                             nullptr,
                             0,
                             &window};
    opt_option *table[7] = {&key_file_option, &cipher_option, &compress_option, &no_encrypt_option,
                            &level_option,    &window_option, nullptr};

    SealOptions() = default;
    SealOptions(const SealOptions &) = delete;
    SealOptions &operator=(const SealOptions &) = delete;
    ~SealOptions() { opt_free(table); }
};

/// Turns the options into settings; kSuccess or kUsage.
int settle(const SealOptions &options, SealSettings *settings) {
    const int cipher = cipherByName(options.cipher);
    if (cipher < 0)
        return usageError(
            "seal: unknown cipher \"%s\"; there are blowfish, aes-256-cfb, "
            "aes-256-ofb and aes-256-ctr",
            options.cipher);
    settings->cipher = static_cast<unsigned char>(cipher);
    if (options.no_encrypt) settings->flags |= VEX_STREAM_NO_ENCRYPTION;
    const bool deflate = strcmp(options.compress, "deflate") == 0;
    const bool none = strcmp(options.compress, "none") == 0;
    if (deflate) settings->flags |= VEX_STREAM_DEFLATE;
    if (none) settings->flags |= VEX_STREAM_NO_COMPRESSION;
    if (!deflate && !none && strcmp(options.compress, "lzo") != 0)
        return usageError("seal: unknown compression \"%s\"; there are lzo, deflate and none",
                          options.compress);
    const uint16_t least = deflate ? 1 : kLeastLzoLevel;
    const uint16_t most = deflate ? kMostDeflateLevel : kMostLzoLevel;
    if (!none && (options.level_option.flags & OPT_SET) != 0 &&
        (options.level < least || options.level > most))
        return usageError("seal: level %u is out of range; %s has %u to %u", options.level,
                          options.compress, least, most);
    settings->level = options.level;
    if ((options.window_option.flags & OPT_SET) != 0 &&
        (options.window < kLeastWindowBits || options.window > kMostWindowBits))
        return usageError("seal: window %u is out of range; choose %u to %u", options.window,
                          kLeastWindowBits, kMostWindowBits);
    settings->window_bits = options.window;
    if (!options.no_encrypt && options.key_file == nullptr)
        return usageError("seal: give --key-file FILE (\"vex keygen\" makes one) or --no-encrypt");
    return kSuccess;
}

}  // namespace

int runSeal(int argc, char **argv) {
    SealOptions options;
    const int first = opt_parse(options.table, argc, argv);
    if (first < 0) return usageError("seal: the options cannot be understood");
    if (argc - first != 2)
        return usageError("seal: name one input and one output behind the options");
    SealSettings settings;
    const int settled = settle(options, &settings);
    if (settled != kSuccess) return settled;

    WipedKey secret;
    InputFile in;
    OutputFile out;
    const bool done = (options.no_encrypt || readKeyFile(options.key_file, &secret.key)) &&
                      in.open(argv[first]) && out.open(argv[first + 1]) &&
                      sealFile(&in, &out, secret.key, settings) && out.commit();
    return done ? kSuccess : kFailure;
}

}  // namespace tool
