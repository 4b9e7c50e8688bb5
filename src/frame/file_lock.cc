#include <fcntl.h>

#include <cerrno>
#include <system_error>

#include <vex/frame.h>
#include <vex/log.h>

#include "base/eintr.h"
#include "base/unique_fd.h"

namespace {

constexpr int kAttempts = 20;
constexpr unsigned kPauseSeconds = 3;
constexpr time_t kLongWaitSeconds = 61;

[[noreturn]] void fail() {
    throw std::system_error(errno, std::generic_category());
}

bool createFile(const std::string &path) {
    const vex::UniqueFile file(fopen(path.c_str(), "abe"));
    if (!file) ErrorA(-1, "%s: failed to create file %s", "Lock", path.c_str());
    return static_cast<bool>(file);
}

}  // namespace

VexFileLock::VexFileLock() = default;

VexFileLock::~VexFileLock() {
    Unlock();
}

void VexFileLock::Unlock() {
    const vex::UniqueFd closed(fd_);
    fd_ = -1;
    locked_ = false;
}

bool VexFileLock::IsLocked() const {
    return locked_;
}

void VexFileLock::attempt(const std::string &path) {
    vex::UniqueFd fd(open(path.c_str(), O_RDWR | O_CLOEXEC));
    if (!fd) fail();
    Unlock();
    fd_ = fd.release();
    struct flock whole {};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    if (vex::retryOnEintr([&] { return fcntl(fd_, F_SETLKW, &whole); }) != 0) fail();
    locked_ = true;
}

bool VexFileLock::Lock(const std::string &path) {
    start_ = time(nullptr);
    for (int i = 0; i < kAttempts; ++i) {
        // an interrupted pause only makes the next attempt earlier
        if (i > 0) (void)VexSleep(kPauseSeconds);
        try {
            if (!createFile(path)) continue;
            attempt(path);
        } catch (const std::exception &e) {
            ErrorA(-1, "%s: caught exception %s", "Lock", e.what());
            continue;
        }
        if (const time_t waited = time(nullptr) - start_; waited >= kLongWaitSeconds)
            InfoA(-1, "%s: %zu seconds was taken to acquire file lock", "Lock",
                  static_cast<size_t>(waited));
        return true;
    }
    return false;
}
