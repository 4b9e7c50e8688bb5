// "vex digest": digests in the two-column form that the usual checkers read, and the check of such
// lists.
#include <fcntl.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "command.h"
#include "command_options.h"
#include "json.h"

namespace tool {
namespace {

constexpr size_t kMd5Length = 32;
constexpr size_t kShaLength = 64;

/// MD5 of a descriptor's data; closes it.
bool md5OfFile(int fd, char *text) {
    std::vector<unsigned char> buffer(1U << 17U);
    MD5Context context{};
    MD5Initialize(&context);
    ssize_t got = 0;
    while ((got = safe_read(fd, buffer.data(), static_cast<ssize_t>(buffer.size()))) > 0)
        MD5Append(&context, buffer.data(), static_cast<uint32_t>(got));
    const int err = errno;
    MD5Finalize(&context);
    (void)close(fd);  // only read from
    errno = err;
    return got == 0 && MD5GetString_r(&context, text, kMd5Length + 1) != nullptr;
}

/// Prints the digest of a file, or of standard input for "-", into 65 characters; tells why when it
/// cannot.
bool digestOf(const std::string &name, bool md5, char *text) {
    if (md5 && EVP_default_properties_is_fips_enabled(nullptr) != 0)
        return fail("MD5 is not available in FIPS mode: leave --md5 out") == kSuccess;
    const int fd = name == "-" ? dup(STDIN_FILENO) : open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd >= 0 &&
        (md5 ? md5OfFile(fd, text) : __sha512_256FromFile(fd, text, kShaLength + 1) != nullptr))
        return true;
    (void)fail("cannot read '%s' (%m): check the path and its permissions", name.c_str());
    return false;
}

/// A name as a line shows it: one that would break the line is escaped, behind a '\' at the line's
/// head.
struct Shown {
    const char *mark = "";
    std::string name;
};

Shown shown(const std::string &name) {
    Shown result;
    for (const char c : name) {
        const char escape = c == '\\' ? '\\' : c == '\n' ? 'n' : c == '\r' ? 'r' : '\0';
        if (escape != '\0') {
            result.mark = "\\";
            result.name.append({'\\', escape});
        } else {
            result.name += c;
        }
    }
    return result;
}

bool unescape(std::string *name) {
    std::string plain;
    for (size_t i = 0; i < name->size(); ++i) {
        char c = (*name)[i];
        if (c == '\\') {
            const char code = ++i < name->size() ? (*name)[i] : '\0';
            if (code != '\\' && code != 'n' && code != 'r') return false;
            c = code == 'n' ? '\n' : code == 'r' ? '\r' : '\\';
        }
        plain += c;
    }
    *name = plain;
    return true;
}

struct Listed {
    std::string digest;
    std::string name;
};

/// Takes "<hex>  name" or "<hex> *name" apart; the digest's length tells its kind.
bool parseLine(const std::string &line, Listed *out) {
    const size_t start = line.rfind('\\', 0) == 0 ? 1 : 0;
    const size_t end =
        std::min(line.find_first_not_of("0123456789abcdefABCDEF", start), line.size());
    const size_t length = end - start;
    if ((length != kMd5Length && length != kShaLength) || line.size() < end + 3) return false;
    if (line[end] != ' ' || (line[end + 1] != ' ' && line[end + 1] != '*')) return false;
    out->digest = line.substr(start, length);
    out->name = line.substr(end + 2);
    return start == 0 || unescape(&out->name);
}

class Checker {
public:
    Checker(std::string list, bool json) : list_(std::move(list)), json_(json) {}

    /// Checks the lines whose names are wanted, all of them when none is named.
    int run(std::vector<std::string> wanted) {
        std::ifstream in(list_ == "-" ? "/dev/stdin" : list_);
        if (!in) return fail("cannot read '%s' (%m): check the path after --check", list_.c_str());
        const bool all = wanted.empty();
        std::string line;
        for (size_t number = 1; std::getline(in, line); ++number) {
            Listed listed;
            if (!parseLine(line, &listed)) {
                status_ = fail(
                    "line %zu of '%s' holds no digest and name: make the list with 'vex digest'",
                    number, list_.c_str());
                continue;
            }
            const auto at = std::find(wanted.begin(), wanted.end(), listed.name);
            if (!all && at == wanted.end()) continue;
            if (!all) wanted.erase(at);
            check(listed);
        }
        if (in.bad()) return fail("cannot read '%s' to its end: check the path", list_.c_str());
        for (const std::string &name : wanted)
            status_ = fail("'%s' is not in '%s': add its digest to the list", name.c_str(),
                           list_.c_str());
        return finish();
    }

private:
    void check(const Listed &listed) {
        char digest[kShaLength + 1];
        const char *result = "OK";
        ++checked_;
        if (!digestOf(listed.name, listed.digest.size() == kMd5Length, digest)) {
            result = "FAILED open or read";
            status_ = kFailure;
        } else if (strcasecmp(digest, listed.digest.c_str()) != 0) {
            result = "FAILED";
            ++different_;
        }
        if (json_) {
            std::printf("{\"file\":%s,\"result\":\"%s\"}\n", jsonString(listed.name).c_str(),
                        result);
            return;
        }
        const Shown name = shown(listed.name);
        std::printf("%s%s: %s\n", name.mark, name.name.c_str(), result);
    }

    int finish() const {
        if (different_ != 0)
            return fail(
                "%zu of %zu files differ from '%s': restore them, or renew the list if they were "
                "meant to change",
                different_, checked_, list_.c_str());
        if (checked_ == 0 && status_ == kSuccess)
            return fail("'%s' lists no file: make the list with 'vex digest'", list_.c_str());
        return status_;
    }

    const std::string list_;
    const bool json_;
    int status_ = kSuccess;
    size_t checked_ = 0;
    size_t different_ = 0;
};

int print(const std::string &name, bool md5, bool json) {
    char digest[kShaLength + 1];
    if (!digestOf(name, md5, digest)) return kFailure;
    if (json) {
        std::printf("{\"file\":%s,\"algorithm\":\"%s\",\"digest\":\"%s\"}\n",
                    jsonString(name).c_str(), md5 ? "md5" : "sha512-256", digest);
        return kSuccess;
    }
    const Shown line = shown(name);
    std::printf("%s%s  %s\n", line.mark, digest, line.name.c_str());
    return kSuccess;
}

}  // namespace

int runDigest(int argc, char **argv) {
    bool md5 = false;
    bool json = false;
    char *list = nullptr;
    CommandOptions options;
    options.flag("md5", &md5);
    options.flag("json", &json);
    options.add("check", OPT_TYPE_PATH, &list).metavar = "LIST";
    const int first = options.parse(argc, argv);
    if (first < 0) return usageError("wrong options for 'digest'");
    const std::vector<std::string> names(argv + first, argv + argc);
    if (list != nullptr) return Checker(list, json).run(names);
    if (names.empty()) return usageError("'digest' needs a file; '-' is standard input");
    int status = kSuccess;
    for (const std::string &name : names)
        if (print(name, md5, json) != kSuccess) status = kFailure;
    return status;
}

}  // namespace tool
