#include "io/replacement_file.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vex/io.h>
#include <vex/path.h>
#include <vex/random.h>

#include "base/directory_of.h"
#include "base/eintr.h"
#include "base/errno_guard.h"

namespace vex::io {
namespace {

constexpr int kAttempts = 100;

}  // namespace

ReplacementFile::~ReplacementFile() {
    const ErrnoGuard guard;
    if (!temporary_.empty()) (void)::unlink(temporary_.c_str());  // nothing better can be done
}

bool ReplacementFile::open(mode_t mode) {
    // behind a symbolic link the file it leads to is replaced, not the link
    char resolved[PATH_MAX];
    if (vex_path_resolve(target_.c_str(), resolved, sizeof resolved) < 0) return false;
    target_ = resolved;
    struct stat status {};
    const bool exists = ::stat(target_.c_str(), &status) == 0;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const std::string name = target_ + "." + std::to_string(RandomUint32());
        fd_ = UniqueFd(retryOnEintr([&] {
            return ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC,
                          exists ? 0600 : mode);
        }));
        if (!fd_ && errno == EEXIST) continue;
        if (!fd_) return false;
        temporary_ = name;
        if (!exists) return true;
        // a service must still be able to read its file when root has changed it; who may not give
        // files away leaves one of his own
        const bool foreign = status.st_uid != geteuid() || status.st_gid != getegid();
        if (foreign && ::fchown(fd(), status.st_uid, status.st_gid) != 0 && errno != EPERM)
            return false;
        return ::fchmod(fd(), status.st_mode & 07777) == 0;
    }
    return false;
}

bool ReplacementFile::commit() {
    if (safe_fsync(fd()) != 0 || fd_.close() != 0 ||
        ::rename(temporary_.c_str(), target_.c_str()) != 0)
        return false;
    temporary_.clear();
    return dirfsync(std::string(directoryOf(target_)).c_str(), 1) == 0;
}

bool replaceFile(const std::string &path, const std::string &text, mode_t mode) {
    ReplacementFile file(path);
    return file.open(mode) && writeAll(file.fd(), text.data(), text.size()) && file.commit();
}

}  // namespace vex::io
