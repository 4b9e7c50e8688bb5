#include <cstring>

#include "command.h"
#include "command_options.h"
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

    CommandOptions table;
    opt_option &level_option = table.add("level", OPT_TYPE_NUMBER16, &level);
    opt_option &window_option = table.add("window", OPT_TYPE_NUMBER16, &window);

    SealOptions() {
        table.add("key-file", OPT_TYPE_RAW_STRING, &key_file).metavar = "FILE";
        table.add("cipher", OPT_TYPE_RAW_STRING, &cipher, "aes-256-ctr").metavar = "NAME";
        table.add("compress", OPT_TYPE_RAW_STRING, &compress, "lzo").metavar = "NAME";
        table.flag("no-encrypt", &no_encrypt);
    }
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
    const int first = options.table.parse(argc, argv);
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
