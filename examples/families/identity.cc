// identity COUNTER FILE...: finds files of equal content. A report has a number, which the Id file
// COUNTER hands out once and never again, and a unique identifier; then each file's fingerprint,
// and the file that it repeats, if any.
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>

#include <vex/bloom_filter.h>
#include <vex/digest.h>
#include <vex/frame.h>
#include <vex/id_file.h>
#include <vex/path.h>
#include <vex/uid.h>

namespace {

/// The next number of the counter, which is on the disk before it is used.
bool nextNumber(const char *path, uint64_t *number) {
    int fd = -1;
    if (vex_access(path, F_OK) != 0 && WriteIdToPath(path, "report", 0) != 0) return false;
    fd = OpenId(path, "report", number, 0);
    if (fd < 0) return false;
    const bool stepped = NextId(path, "report", number, fd) == 0;
    return close(fd) == 0 && stepped;
}

bool printHead(const char *counter) {
    uint64_t number = 0;
    VexUID uid;
    char text[33];
    if (!nextNumber(counter, &number) || VexUIDGenerate(&uid, 1) == nullptr ||
        VexUIDSerialize(text, sizeof text, &uid, false) != 32)
        return false;
    return std::printf("report %" PRIu64 " %s\n", number, text) > 0;
}

}  // namespace

int main(int argc, char **argv) {
    const zqutil::LibAutoInit library("identity");
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s COUNTER FILE...\n", argv[0]);
        return 2;
    }
    if (!printHead(argv[1])) return 1;  // every failure has been logged where it happened

    // 16 bits of filter a file: about one look-up in 2000 goes to the map for nothing
    BloomFilter seen(static_cast<unsigned long>(argc) * 2, 0.001);
    std::map<std::string, const char *> first;
    int status = 0;
    for (int i = 2; i < argc; ++i) {
        char fingerprint[65];
        crfp_digest_t digest = {};
        if (SHA256FromFile_r(argv[i], fingerprint, sizeof fingerprint) == nullptr ||
            SHA256StringToDigest_r(fingerprint, digest.bytes) == nullptr) {
            status = 1;
            continue;
        }
        const auto known = seen.Matches(digest) ? first.find(fingerprint) : first.end();
        std::printf("%s %s%s%s\n", fingerprint, argv[i], known != first.end() ? " = " : "",
                    known != first.end() ? known->second : "");
        if (known != first.end()) continue;
        seen.Insert(digest);
        first.emplace(fingerprint, argv[i]);
    }
    return status;
}
