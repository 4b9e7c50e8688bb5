#include "command.h"
#include "command_options.h"
#include "input_file.h"
#include "key_file.h"
#include "output_file.h"
#include "stream_file.h"

namespace tool {

int runOpen(int argc, char **argv) {
    char *key_file = nullptr;
    char *cipher_name = nullptr;
    CommandOptions options;
    options.add("key-file", OPT_TYPE_RAW_STRING, &key_file).metavar = "FILE";
    options.add("cipher", OPT_TYPE_RAW_STRING, &cipher_name, "aes-256-ctr").metavar = "NAME";
    const int first = options.parse(argc, argv);
    if (first < 0) return usageError("open: the options cannot be understood");
    if (argc - first != 2)
        return usageError("open: name one input and one output behind the options");
    const int cipher = cipherByName(cipher_name);
    if (cipher < 0)
        return usageError(
            "open: unknown cipher \"%s\"; there are blowfish, aes-256-cfb, "
            "aes-256-ofb and aes-256-ctr",
            cipher_name);

    WipedKey secret;
    InputFile in;
    OutputFile out;
    const bool keyed = key_file != nullptr;
    const bool done =
        (!keyed || readKeyFile(key_file, &secret.key)) && in.open(argv[first]) &&
        out.open(argv[first + 1]) &&
        openFile(&in, &out, keyed ? &secret.key : nullptr, static_cast<unsigned char>(cipher)) &&
        out.commit();
    return done ? kSuccess : kFailure;
}

}  // namespace tool
