#include <errno.h>
#include <sys/stat.h>

#include <cstring>

#include <vex/file.h>

#include "fs/reader.h"
#include "log/report.h"

namespace {

constexpr char kEngine[] = "_doCompare";  // the name that its messages carry

int doCompare(int a, int b) {
    struct stat status_a {
    }, status_b{};
    if (fstat(a, &status_a) != 0 || fstat(b, &status_b) != 0)
        return VEX_FAIL_AS(kEngine, errno, errno, -1, "could not stat file");
    if (status_a.st_size != status_b.st_size) return 1;
    unsigned char block_a[vex::fs::kBlock], block_b[vex::fs::kBlock];
    for (;;) {
        const ssize_t got_a = safe_read(a, block_a, sizeof block_a);
        const ssize_t got_b = got_a < 0 ? -1 : safe_read(b, block_b, sizeof block_b);
        if (got_a < 0 || got_b < 0)
            return VEX_FAIL_AS(kEngine, errno, errno, -1, "possible I/O error");
        if (got_a != got_b || memcmp(block_a, block_b, static_cast<size_t>(got_a)) != 0) return 1;
        if (got_a == 0) return 0;
    }
}

}  // namespace

int FileCompare(const char *a, const char *b) {
    if (a == nullptr || b == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    const vex::UniqueFd first = vex::fs::openReader(__func__, a);
    if (!first) return -1;
    const vex::UniqueFd second = vex::fs::openReader(__func__, b);
    if (!second) return -1;
    return doCompare(first.get(), second.get());
}
