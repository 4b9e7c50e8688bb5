// The content is written to a file without a name where the file system has such, so that not even
// a kill or a power cut leaves anything behind; elsewhere to a hidden one beside the target.
#include "output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "base/eintr.h"
#include "command.h"
#include "fatal_signal.h"

namespace tool {
namespace {

constexpr mode_t kPermissions = 0777;
constexpr int kAttempts = 100;

// the named temporary file that an interrupted process removes
char removed_on_signal[4096];

void removeOnSignal(const std::string &path) {
    if (vex_strcpy(removed_on_signal, sizeof removed_on_signal, path.c_str()) < 0) return;
    onFatalSignal([] { unlink(removed_on_signal); });
}

/// A name beside the target that nobody else uses.
std::string temporaryName(const std::string &directory) {
    char name[32];
    (void)snprintf(name, sizeof name, "/.vex-%016llx",
                   static_cast<unsigned long long>(RandomUint64()));
    return directory + name;
}

mode_t newFileMode() {
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

}  // namespace

bool OutputFile::failed(const char *what) const {
    fail("%s %s: %m; %s", name_.c_str(), what,
         direct() ? "what was written so far is incomplete" : "what was there is unchanged");
    return false;
}

bool OutputFile::open(const char *path) {
    name_ = path;
    if (name_ == "-") {
        name_ = "standard output";
        fd_.reset(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3));
        return fd_ || failed("cannot be written");
    }
    struct stat status {};
    const bool exists = stat(path, &status) == 0;
    if (exists && !S_ISREG(status.st_mode)) {
        fd_.reset(vex::retryOnEintr([&] { return ::open(path, O_WRONLY | O_CLOEXEC); }));
        return fd_ || failed("cannot be opened for writing");
    }
    char *const real = exists ? realpath(path, nullptr) : nullptr;
    target_ = real != nullptr ? real : path;
    std::free(real);
    directory_ = vex::directoryOf(target_);
    mode_ = exists ? status.st_mode & kPermissions : newFileMode();
    if (exists) owner_ = {status.st_uid, status.st_gid};
    return createUnnamed() || createNamed() || failed("cannot be created");
}

bool OutputFile::createUnnamed() {
    fd_.reset(::open(directory_.c_str(), O_WRONLY | O_TMPFILE | O_CLOEXEC, 0600));
    return static_cast<bool>(fd_);
}

bool OutputFile::createNamed() {
    for (int i = 0; i < kAttempts; ++i) {
        const std::string name = temporaryName(directory_);
        fd_.reset(::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        if (fd_) {
            temporary_ = name;
            removeOnSignal(temporary_);
            return true;
        }
        if (errno != EEXIST) return false;
    }
    return false;
}

bool OutputFile::write(const void *data, size_t size) {
    return safe_write(fd_.get(), data, static_cast<ssize_t>(size)) == static_cast<ssize_t>(size) ||
           failed("cannot be written");
}

bool OutputFile::commit() {
    if (direct()) return fd_.close() == 0 || failed("could not be completed");
    // only the superuser may pass a file on; for all others a replaced file becomes their own
    if (owner_.user != geteuid() || owner_.group != getegid())
        (void)fchown(fd_.get(), owner_.user, owner_.group);
    if (fchmod(fd_.get(), mode_) != 0 || safe_fsync(fd_.get()) != 0 || !publish())
        return failed("could not be completed");
    const bool durable = dirfsync(directory_.c_str(), 0) == 0;
    if (!durable)
        fail("%s is complete, but may be gone after a power cut: %m; check the disk and repeat",
             name_.c_str());
    return durable;
}

/// Gives the complete file its name.
bool OutputFile::publish() {
    if (temporary_.empty()) {
        char self[32];
        (void)snprintf(self, sizeof self, "/proc/self/fd/%d", fd_.get());
        // a link cannot replace a file, a rename can
        const std::string name = temporaryName(directory_);
        removeOnSignal(name);
        if (linkat(AT_FDCWD, self, AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) != 0) return false;
        temporary_ = name;
    }
    if (fd_.close() != 0 || safe_rename(temporary_.c_str(), target_.c_str()) != 0) return false;
    temporary_.clear();
    return true;
}

OutputFile::~OutputFile() {
    if (!temporary_.empty()) unlink(temporary_.c_str());
}

}  // namespace tool
