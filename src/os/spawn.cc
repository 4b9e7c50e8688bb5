#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

#include <vex/process.h>

#include "base/eintr.h"
#include "base/monotonic.h"
#include "base/unique_fd.h"
#include "log/report.h"

namespace {

using vex::UniqueFd;

/// How often to look for the program's end while something that it started keeps its output open.
constexpr int kLookMs = 50;
constexpr size_t kBlock = 4096;
constexpr int kMostLast = (1 << 20) / kBlock;  // blocks in the largest pipe

/// The two records that posix_spawn is given, released together.
class SpawnSetup {
public:
    SpawnSetup() {
        (void)posix_spawn_file_actions_init(&actions_);  // cannot fail in this C library
        (void)posix_spawnattr_init(&attributes_);
    }
    ~SpawnSetup() {
        (void)posix_spawn_file_actions_destroy(&actions_);
        (void)posix_spawnattr_destroy(&attributes_);
    }
    SpawnSetup(const SpawnSetup &) = delete;
    SpawnSetup &operator=(const SpawnSetup &) = delete;

    /// @p output is where both outputs go, or negative; 0 or an errno.
    int prepare(int output) {
        sigset_t none, all;
        sigemptyset(&none);
        sigfillset(&all);
        int err =
            posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        for (const int standard : {STDOUT_FILENO, STDERR_FILENO})
            if (err == 0 && output >= 0)
                err = posix_spawn_file_actions_adddup2(&actions_, output, standard);
        if (err == 0) err = posix_spawnattr_setsigmask(&attributes_, &none);
        if (err == 0) err = posix_spawnattr_setsigdefault(&attributes_, &all);
        if (err == 0) err = posix_spawnattr_setpgroup(&attributes_, 0);
        if (err != 0) return err;
        return posix_spawnattr_setflags(
            &attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    }

    int run(const char *const argv[], pid_t *pid) {
        return posix_spawn(pid, argv[0], &actions_, &attributes_, const_cast<char *const *>(argv),
                           environ);
    }

private:
    posix_spawn_file_actions_t actions_;
    posix_spawnattr_t attributes_;
};

/// A program that runs, and what it has written so far.
class Child {
public:
    Child(pid_t pid, UniqueFd output, char *text, size_t size)
        : pid_(pid),
          output_(std::move(output)),
          text_(text),
          room_(text != nullptr ? size - 1 : 0) {}

    /// Waits for the program's end; false with errno when the time was up or it could not be waited
    /// for.
    bool finish(int timeout_s, int *status) {
        const long deadline = timeout_s > 0 ? vex::monotonicMs() + 1000L * timeout_s : LONG_MAX;
        while (!ended(status)) {
            if (errno != 0) return false;
            if (vex::monotonicMs() >= deadline) return killGroup(status);
            const long left = deadline - vex::monotonicMs();
            wait(static_cast<int>(std::clamp(left, 0L, long{kLookMs})));
        }
        // what it wrote last; what a program behind it goes on writing is not waited for
        for (int i = 0; i < kMostLast && output_ && readSome(0); ++i) {
        }
        return true;
    }

private:
    /// Looks without waiting; false with errno 0 while it runs.
    bool ended(int *status) {
        errno = 0;
        // an output that ended means that the program has or is about to
        const pid_t result = vex::retryOnEintr([&] { return ::waitpid(pid_, status, WNOHANG); });
        if (result == 0) errno = 0;
        return result == pid_;
    }

    void wait(int ms) {
        if (output_) {
            (void)readSome(ms);
        } else {
            const int step = std::min(ms, pause_);
            const struct timespec nap = {0, step * 1000000L};
            (void)nanosleep(&nap, nullptr);  // a signal only makes the next look earlier
            pause_ = std::min(2 * pause_, kLookMs);
        }
    }

    /// Takes what is there within @p ms; false when nothing was or the output has ended.
    bool readSome(int ms) {
        struct pollfd ready = {output_.get(), POLLIN, 0};
        if (::poll(&ready, 1, ms) <= 0) return false;
        char block[kBlock];
        const ssize_t got =
            vex::retryOnEintr([&] { return ::read(output_.get(), block, sizeof block); });
        if (got <= 0) {
            output_.reset();
            return false;
        }
        const size_t kept = std::min(static_cast<size_t>(got), room_ - length_);
        memcpy(text_ + length_, block, kept);
        length_ += kept;
        text_[length_] = '\0';
        return true;
    }

    bool killGroup(int *status) {
        (void)::kill(-pid_, SIGKILL);  // it may have ended by itself
        (void)vex::retryOnEintr([&] { return ::waitpid(pid_, status, 0); });
        errno = ETIMEDOUT;
        return false;
    }

    pid_t pid_;
    UniqueFd output_;
    char *text_;
    size_t room_, length_ = 0;
    int pause_ = 1;  // ms
};

}  // namespace

int VexSpawn(const char *const argv[], int *exit_status, char *output, size_t size, int timeout_s) {
    if (argv == nullptr || argv[0] == nullptr || (output != nullptr && size == 0))
        return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    if (output != nullptr) *output = '\0';
    int ends[2] = {-1, -1};
    if (output != nullptr && pipe2(ends, O_CLOEXEC) != 0)
        return VEX_FAIL(errno, -1, "could not create a pipe: %m");
    UniqueFd from_child(ends[0]), to_us(ends[1]);
    SpawnSetup setup;
    pid_t pid = 0;
    int err = setup.prepare(to_us.get());
    if (err == 0) err = setup.run(argv, &pid);
    if (err != 0) return VEX_FAIL(err, -1, "could not run %s: %m", argv[0]);
    to_us.reset();
    int status = 0;
    if (!Child(pid, std::move(from_child), output, size).finish(timeout_s, &status))
        return VEX_FAIL(errno, -1, "%s did not end: %m", argv[0]);
    if (exit_status != nullptr)
        *exit_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return 0;
}
