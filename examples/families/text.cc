// text base64|hex|url|latin1 TEXT...: prints each text in that form, one a line, and reads it back
// to be sure. A text that is not UTF-8 is taken for one of the locale's character set.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <vex/encoding.h>
#include <vex/frame.h>

namespace {

struct Free {
    void operator()(void *p) const { std::free(p); }
};
using Text = std::unique_ptr<char, Free>;

struct Form {
    const char *name;
    ssize_t (*write)(const char *text, char *out, size_t size);
    ssize_t (*read)(const char *text, char *out, size_t size);
};

/// Base64Encode and its like count in unsigned: give them no more than that holds.
unsigned room(size_t size) {
    return size < 1u << 30 ? static_cast<unsigned>(size) : 1u << 30;
}

const Form kForms[] = {{"base64",
                        [](const char *text, char *out, size_t size) -> ssize_t {
                            return Base64Encode(text, room(strlen(text)), out, room(size));
                        },
                        [](const char *text, char *out, size_t size) -> ssize_t {
                            return Base64Decode(text, out, room(size));
                        }},
                       {"hex",
                        [](const char *text, char *out, size_t size) -> ssize_t {
                            return HexEncode(text, room(strlen(text)), out, room(size));
                        },
                        [](const char *text, char *out, size_t size) -> ssize_t {
                            return HexDecode(text, out, room(size));
                        }},
                       {"url", UrlEncode, UrlDecode},
                       {"latin1", vex_utf8_to_latin1, vex_latin1_to_utf8}};

bool print(const Form &form, const char *given) {
    const Text text(strtoutf8_malloced(given));
    if (!text) return false;
    std::string out(3 * strlen(text.get()) + 5, '\0'), back(out.size(), '\0');
    const ssize_t length = form.write(text.get(), out.data(), out.size());
    if (length < 0) {
        std::fprintf(stderr, "\"%s\" has no such form: see byte %zu\n", text.get(),
                     vex_encoding_error_offset());
        return false;
    }
    const ssize_t same = form.read(out.c_str(), back.data(), back.size());
    if (same < 0 || back.compare(0, static_cast<size_t>(same), text.get()) != 0) return false;
    return std::printf("%s\n", out.c_str()) > 0;
}

}  // namespace

int main(int argc, char **argv) {
    const zqutil::LibAutoInit library("text");
    bool good = argc > 2;
    for (const Form &form : kForms) {
        if (argc < 3 || strcmp(form.name, argv[1]) != 0) continue;
        for (int i = 2; i < argc; ++i) good = print(form, argv[i]) && good;
        return good ? 0 : 1;
    }
    std::fprintf(stderr, "usage: %s base64|hex|url|latin1 TEXT...\n", argv[0]);
    return 2;
}
