// os LOCKFILE SECONDS PROGRAM [ARGUMENT...]: runs a job of cron: not while the one before still
// runs, and no longer than SECONDS. Prints the job's output only when it failed, and ends with its
// status; 75 when another one holds the lock, 124 when the time was up.
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include <vex/frame.h>
#include <vex/log.h>
#include <vex/os.h>
#include <vex/process.h>

namespace {

/// Room on the disk and memory, for the line that tells of a failure.
void logSurroundings() {
    VexMemoryInfo memory;
    VexFsInfo room;
    if (VexGetMemoryInfo(&memory) == 0 && VexGetFsInfo("/tmp", &room) == 0)
        InfoA(-1, "%llu MiB of memory and %llu MiB of /tmp are available",
              static_cast<unsigned long long>(memory.available >> 20),
              static_cast<unsigned long long>(room.available >> 20));
}

int runJob(char **job, int seconds) {
    static char output[64 << 10];  // the job's first 64 KiB
    int status = 0;
    // argv[0] is a path, no shell reads it, and standard input is /dev/null
    if (VexSpawn(job, &status, output, sizeof output, seconds) != 0) {
        status = errno == ETIMEDOUT ? 124 : 127;  // logged
        logSurroundings();
    }
    if (status != 0) (void)std::fputs(output, stdout);
    return status;
}

}  // namespace

int main(int argc, char **argv) {
    const zqutil::LibAutoInit library("os");
    if (argc < 4) {
        std::fprintf(stderr, "usage: %s LOCKFILE SECONDS PROGRAM [ARGUMENT...]\n", argv[0]);
        return 2;
    }
    const int lock = VexLockFileAcquire(argv[1], 0);
    if (lock < 0) {
        if (errno == EAGAIN) InfoA(-1, "%s still runs", argv[3]);  // other failures are logged
        return errno == EAGAIN ? 75 : 1;
    }
    const int status = runJob(argv + 3, std::atoi(argv[2]));
    return VexLockFileRelease(lock) == 0 ? status : 1;
}
