// "vex id": the counter of an Id file. Commands on one file take turns, so that no two get the same
// number.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "base/directory_of.h"
#include "command.h"
#include "command_options.h"
#include "output_file.h"

namespace tool {
namespace {

constexpr const char *kName = "Id";
constexpr off_t kLargestIdFile = 12;

/// Opens the file and waits for its turn; tells why when it cannot.
int openId(const char *path, int mode) {
    const int fd = open(path, mode | O_CLOEXEC);
    if (fd < 0) {
        (void)fail("cannot open '%s' (%m): check the path, or create it with 'vex id write'", path);
    } else if (flock(fd, mode == O_RDONLY ? LOCK_SH : LOCK_EX) != 0) {
        (void)fail("cannot lock '%s' (%m): try again", path);
        (void)close(fd);  // nothing was written
        return -1;
    }
    return fd;
}

int closeId(const char *path, int fd, int status) {
    return close(fd) == 0 || status != kSuccess ? status : fail("cannot close '%s' (%m)", path);
}

int readOpen(const char *path, int fd, uint64_t *value) {
    if (ReadId(path, kName, value, fd, 0) == 0) return kSuccess;
    return fail("'%s' holds no counter: restore it, or store one with 'vex id write'", path);
}

int show(const char *path) {
    const int fd = openId(path, O_RDONLY);
    if (fd < 0) return kFailure;
    uint64_t value = 0;
    const int status = readOpen(path, fd, &value);
    if (status == kSuccess) std::printf("%" PRIu64 "\n", value);
    return closeId(path, fd, status);
}

int step(const char *path, int fd, uint64_t *value) {
    if (const int status = readOpen(path, fd, value); status != kSuccess) return status;
    if (*value == UINT64_MAX) return fail("the counter in '%s' is at its end", path);
    if (NextId(path, kName, value, fd) == 0) return kSuccess;
    return fail("the counter in '%s' may not be stored: check the disk before using it again",
                path);
}

int next(const char *path) {
    const int fd = openId(path, O_RDWR);
    if (fd < 0) return kFailure;
    uint64_t value = 0;
    // a number goes out only when it is stored and the file is closed
    const int status = closeId(path, fd, step(path, fd, &value));
    if (status == kSuccess) std::printf("%" PRIu64 "\n", value);
    return status;
}

int create(const char *path, uint64_t value) {
    if (WriteIdToPath(path, kName, value) == 0 &&
        dirfsync(std::string(vex::directoryOf(path)).c_str(), 0) == 0)
        return kSuccess;
    return fail("the counter is not stored in '%s': check directory and disk, then write again",
                path);
}

int overwrite(const char *path, uint64_t value) {
    int fd = openId(path, O_RDWR);
    if (fd < 0) return kFailure;
    int status = kSuccess;
    struct stat info {};
    if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode) || info.st_size > kLargestIdFile)
        status = fail("'%s' is no Id file and stays as it is: choose another path", path);
    else if (WriteId(path, kName, value, &fd) != 0)
        status =
            fail("the counter in '%s' may not be stored: check the disk, then write again", path);
    return closeId(path, fd, status);
}

int write(const char *path, const char *text) {
    errno = 0;
    const uint64_t value = std::strtoull(text, nullptr, 10);
    if (*text == '\0' || VexIsDecimalNumber(text) == 0 || errno != 0)
        return usageError("'%s' is no number from 0 to 18446744073709551615", text);
    return access(path, F_OK) == 0 ? overwrite(path, value) : create(path, value);
}

}  // namespace

int runId(int argc, char **argv) {
    const int first = CommandOptions().parse(argc, argv);
    if (first < 0) return usageError("'id' has no options");
    const int count = argc - first;
    const std::string action = count > 0 ? argv[first] : "";
    if (action == "show" && count == 2) return show(argv[first + 1]);
    if (action == "next" && count == 2) return next(argv[first + 1]);
    if (action == "write" && count == 3) return write(argv[first + 1], argv[first + 2]);
    return usageError("'id' takes show FILE, next FILE or write FILE VALUE");
}

}  // namespace tool
