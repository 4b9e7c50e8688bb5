#include <errno.h>
#include <stdio.h>
#include <unistd.h>

#include <string>

#include <vex/file.h>
#include <vex/log.h>

#include "base/directory_of.h"
#include "base/sleep.h"
#include "fs/copy.h"
#include "fs/exists.h"
#include "log/report.h"

namespace {

constexpr int kAttempts = 6;

/// Copies and removes the source, which goes only when content and name of the copy are durable.
bool moveByCopy(const char *who, const char *from, const char *to, int mode) {
    const std::string directory(vex::directoryOf(to));
    if (vex::fs::copyFile(from, to, mode, true) < 0)
        return VEX_FAIL_AS(who, errno, errno, false, "copy failed");
    const bool durable = dirfsync(directory.c_str(), 1) == 0;
    if (durable && ::unlink(from) == 0) return true;
    const int err = errno;
    (void)::unlink(to);  // what matters is reported below
    return VEX_FAIL_AS(who, err, err, false, "%s failed", durable ? "remove" : "copy");
}

bool move(const char *who, const char *from, const char *to, int mode) {
    if (from == nullptr || to == nullptr)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, false, "invalid NULL parameter");
    if (::rename(from, to) == 0) return true;
    // without a source there is nothing that could take the destination's place
    if (vex::fs::exists(from) && vex::fs::exists(to)) {
        InfoA(-1, "Destination file (%s) exists,now try to remove it.", to);
        if (::unlink(to) != 0)
            return VEX_FAIL_AS(who, errno, errno, false, "remove file(%s) failed!", to);
        if (::rename(from, to) == 0) {
            InfoA(-1, "Second attempt rename succeed!");
            return true;
        }
    }
    return moveByCopy(who, from, to, mode);
}

}  // namespace

bool FileMove(const char *from, const char *to, int mode) {
    return vex::guard(__func__, false, [&] { return move("FileMove", from, to, mode); });
}

bool FileMoveWithRetry(const char *from, const char *to, int mode) {
    if (from == nullptr || to == nullptr) return VEX_FAIL(EINVAL, false, "invalid NULL parameter");
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        if (FileMove(from, to, mode)) return true;
        (void)VEX_FAIL(errno, false, "move %s to %s failed (%m), retry in 1 second!", from, to);
        vex::sleepMs(1000);
    }
    return false;
}
