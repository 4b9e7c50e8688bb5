#include "command.h"
#include "input_file.h"
#include "key_file.h"
#include "output_file.h"
#include "stream_file.h"

namespace tool {
namespace {

struct OpenOptions {
    char *key_file = nullptr, *cipher = nullptr;

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
    opt_option cipher_option{"the cipher that it was sealed with",
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
    opt_option *table[3] = {&key_file_option, &cipher_option, nullptr};

    OpenOptions() = default;
    OpenOptions(const OpenOptions &) = delete;
    OpenOptions &operator=(const OpenOptions &) = delete;
    ~OpenOptions() { opt_free(table); }
};

}  // namespace

int runOpen(int argc, char **argv) {
    OpenOptions options;
    const int first = opt_parse(options.table, argc, argv);
    if (first < 0) return usageError("open: the options cannot be understood");
    if (argc - first != 2)
        return usageError("open: name one input and one output behind the options");
    const int cipher = cipherByName(options.cipher);
    if (cipher < 0)
        return usageError(
            "open: unknown cipher \"%s\"; there are blowfish, aes-256-cfb, "
            "aes-256-ofb and aes-256-ctr",
            options.cipher);

    WipedKey secret;
    InputFile in;
    OutputFile out;
    const bool keyed = options.key_file != nullptr;
    const bool done =
        (!keyed || readKeyFile(options.key_file, &secret.key)) && in.open(argv[first]) &&
        out.open(argv[first + 1]) &&
        openFile(&in, &out, keyed ? &secret.key : nullptr, static_cast<unsigned char>(cipher)) &&
        out.commit();
    return done ? kSuccess : kFailure;
}

}  // namespace tool
