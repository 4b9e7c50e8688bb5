#include "crypto/key_store.h"

#include <fcntl.h>
#include <stdio.h>
#include <zlib.h>

#include <cerrno>

#include <vex/io.h>
#include <vex/password.h>

#include "base/ascii.h"
#include "base/eintr.h"
#include "base/unique_fd.h"
#include "log/report.h"

namespace vex::crypto {
namespace {

constexpr uint32_t kVersion = 1;

/// Takes "<name>=<decimal>" lines from the head of a text.
class Lines {
public:
    Lines(const char *path, std::string_view text) : path_(path), rest_(text) {}

    bool atEnd() const { return rest_.empty(); }

    /// 0, or the code of a bad line after one log line, which shows none of its content: it may be
    /// part of a key.
    int number(std::string_view name, uint32_t *value) {
        ++line_;
        const size_t end = rest_.find('\n');
        if (end == std::string_view::npos) return bad();
        std::string_view line = rest_.substr(0, end);
        rest_.remove_prefix(end + 1);
        if (line.substr(0, name.size()) != name || line.size() < name.size() + 2 ||
            line[name.size()] != '=')
            return bad();
        line.remove_prefix(name.size() + 1);
        uint64_t number = 0;
        for (const char c : line) {
            if (!ascii::isDigit(c)) return bad();
            number = number * 10 + static_cast<uint64_t>(c - '0');
            if (number > UINT32_MAX) return bad();
        }
        *value = static_cast<uint32_t>(number);
        return 0;
    }
    int bad() const {
        return VEX_FAIL_AS("readKeyStore", EINVAL, EINVAL, VEX_KEY_STORE_BAD_LINE,
                           "bad line format in %s, line %u", path_, line_);
    }

private:
    const char *path_;
    std::string_view rest_;
    unsigned line_ = 0;
};

bool readText(const char *path, KeyFileText *text) {
    UniqueFd fd(retryOnEintr([&] { return ::open(path, O_RDONLY | O_CLOEXEC); }));
    if (!fd) return false;
    const ssize_t size = safe_read(fd.get(), text->bytes, sizeof text->bytes);
    if (size < 0) return false;
    text->size = static_cast<size_t>(size);
    errno = EFBIG;
    return text->size < sizeof text->bytes;
}

/// Sets @p matches when the checksum file names @p crc. While a store is being replaced it names
/// the new and the old file's, so that either goes with it.
int matchChecksum(const char *path, uint32_t crc, bool *matches) {
    KeyFileText text;
    if (!readText(path, &text))
        return VEX_FAIL_AS("readKeyStore", errno, errno, VEX_KEY_STORE_NO_CHECKSUM,
                           "failed to load chksum file %s: %m", path);
    Lines lines(path, text.view());
    *matches = false;
    int named = 0;
    do {
        uint32_t value = 0;
        if (const int code = lines.number("crc", &value); code != 0) return code;
        *matches = *matches || value == crc;
    } while (!lines.atEnd() && ++named < 2);
    return lines.atEnd() ? 0 : lines.bad();
}

int parseKeys(Lines *lines, KeyStore *store) {
    char name[16];
    for (uint32_t key = 0; key < store->count; ++key) {
        for (unsigned word = 0; word < kKeyWords; ++word) {
            (void)snprintf(name, sizeof name, "key%u_%u", key, word);  // fits: see kMostKeys
            if (const int code = lines->number(name, &store->keys[key][word]); code != 0)
                return code;
        }
    }
    return lines->atEnd() ? 0 : lines->bad();
}

int parse(const char *path, std::string_view text, KeyStore *store) {
    const auto outOfRange = [path](const char *what, uint32_t value, uint32_t end) {
        return VEX_FAIL_AS("readKeyStore", ERANGE, ERANGE, VEX_KEY_STORE_BAD_INDEX,
                           "%s: %s(%u) is out of range[0, %u)", path, what, value, end);
    };
    Lines lines(path, text);
    uint32_t version = 0;
    if (const int code = lines.number("version", &version); code != 0) return code;
    if (version != kVersion) return lines.bad();
    if (const int code = lines.number("count", &store->count); code != 0) return code;
    if (store->count > kMostKeys) return outOfRange("count", store->count, kMostKeys + 1);
    if (const int code = lines.number("index", &store->index); code != 0) return code;
    if (store->index >= store->count) return outOfRange("index", store->index, store->count);
    return parseKeys(&lines, store);
}

/// Reads a key file that goes with its checksum file. Where a writer replaced both between the two
/// reads they do not match; then the key file is another one when it is read again.
int readMatching(const char *key_file, KeyFileText *text, uint32_t *crc) {
    const std::string checksum_file = checksumFileOf(key_file);
    uint32_t last = 0;
    for (bool again = false;; again = true) {
        if (!readText(key_file, text))
            return VEX_FAIL_AS("readKeyStore", errno, errno, VEX_KEY_STORE_READ_ERROR,
                               "file read error for %s: %m", key_file);
        *crc = checksumOf(text->view());
        bool matches = false;
        if (const int code = matchChecksum(checksum_file.c_str(), *crc, &matches); code != 0)
            return code;
        if (matches) return 0;
        if (again && *crc == last)
            return VEX_FAIL_AS("readKeyStore", EBADMSG, EBADMSG, VEX_KEY_STORE_CRC_MISMATCH,
                               "CRC mismatch for %s", key_file);
        last = *crc;
    }
}

}  // namespace

std::string checksumFileOf(const char *key_file) {
    return std::string(key_file) + ".chksum";
}

uint32_t checksumOf(std::string_view text) {
    return static_cast<uint32_t>(::crc32(0, reinterpret_cast<const unsigned char *>(text.data()),
                                         static_cast<unsigned>(text.size())));
}

int readKeyStore(const char *key_file, KeyStore *store, uint32_t *crc) {
    return guard(__func__, -1, [=] {
        KeyFileText text;
        const int code = readMatching(key_file, &text, crc);
        return code != 0 ? code : parse(key_file, text.view(), store);
    });
}

int currentKey(const char *key_file, char (&text)[kKeyTextSize], unsigned *index) {
    KeyStore store;
    uint32_t crc = 0;
    if (const int code = readKeyStore(key_file, &store, &crc); code != 0) return code;
    for (unsigned word = 0; word < kKeyWords; ++word)
        (void)snprintf(text + static_cast<size_t>(word) * 8, 9, "%08x",
                       store.keys[store.index][word]);  // eight digits always
    *index = store.index;
    return 0;
}

}  // namespace vex::crypto
