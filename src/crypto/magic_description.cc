#include <cerrno>
#include <cstdio>
#include <cstring>

#include <vex/cipher.h>
#include <vex/magic.h>

namespace {

// one buffer for the process: the text serves diagnostics of one thread
char description[256];

void append(const char *text) {
    const size_t used = strlen(description);
    snprintf(description + used, sizeof description - used, "%s", text);
}

// in the order of the text; the flag of the library's own ciphers comes before all of them
constexpr struct {
    int flag;
    const char *text;
} kTexts[] = {
    {VEX_MAGIC_PLUGIN, "Plugin Encrypted archive "},
    {VEX_MAGIC_SKIPJACK, "SkipJack Encrypted archive "},
    {VEX_MAGIC_KEY_256, "256bit key "},
    {VEX_MAGIC_DEFLATE, "Deflated "},
    {VEX_MAGIC_LZO, "LZO Compressed "},
    {VEX_MAGIC_CACHE, "Cache data file"},
    {VEX_MAGIC_KEY_RING, "Public key ring "},
    {VEX_MAGIC_RSA, "RSA Encrypted archive "},
    {VEX_MAGIC_SIMPLE, "Simple archive "},
    {VEX_MAGIC_STREAMABLE, "Streamable "},
    {VEX_MAGIC_BLOCK_LIST, "Blocklist "},
    {VEX_MAGIC_SPOOLER_LOG, "Spooler log "},
    {VEX_MAGIC_STREAMABLE_V2, "Streamable, v2"},
};

}  // namespace

const char *vexMagicDesc(int result, int cipherType) {
    const int error = errno;
    std::memset(description, 0, sizeof description);
    if (result == -2) return "- Possibly Corrupted VEX archive";
    if (result == 0) return "Not a VEX archive ";
    if (result == -1) {
        char text[128];
        snprintf(description, sizeof description, "Error: %s",
                 strerror_r(error, text, sizeof text));
        return description;
    }
    if ((result & VEX_MAGIC_ENCRYPTED) != 0) {
        append(Cipher::GetCipherDescription(cipherType & 0xff));
        append(" Encrypted archive ");
    }
    for (const auto &row : kTexts)
        if ((result & row.flag) != 0) append(row.text);
    return description;
}
