#ifndef VEXTEST_CHILD_H
#define VEXTEST_CHILD_H

#include <sched.h>
#include <stdio.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "support/data.h"

namespace vextest {

/// What a child process left behind.
struct ChildResult {
    int exit_status;  ///< -1 when a signal ended it
    int signal;
    std::string out;  ///< its standard output
    std::string err;  ///< its standard error
};

/// Runs @p body in a forked child, for what ends the process; a body that returns ends it with
/// status 0.
inline ChildResult runChild(const std::function<void()> &body) {
    const TempDir dir;
    const std::string out = dir / "out", err = dir / "err";
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        if (freopen(out.c_str(), "a", stdout) == nullptr || freopen(err.c_str(), "a", stderr) == nullptr) _exit(99);
        body();
        fflush(nullptr);
        _exit(0);  // the parent's exit handlers and leak check are not the child's
    }
    int status = 0;
    waitpid(child, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, WIFSIGNALED(status) ? WTERMSIG(status) : 0, readFile(out),
        readFile(err)};
}

/// Runs @p body in that many forked children at once; the exit statuses that it gives, 128 plus the signal where one
/// ended it.
inline std::vector<int> inChildren(int count, const std::function<int()> &body) {
    std::vector<int> children(static_cast<size_t>(count));
    for (int &child : children)
        if ((child = fork()) == 0) _exit(body());
    for (int &child : children) {
        int status = 0;
        waitpid(child, &status, 0);
        child = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    return children;
}
inline int inChild(const std::function<int()> &body) { return inChildren(1, body)[0]; }

/// Runs the body in that many threads at once; each gets its number.
inline void inThreads(int count, const std::function<void(int)> &body) {
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) threads.emplace_back(body, i);
    for (auto &thread : threads) thread.join();
}

/// Waits up to five seconds for what other processes bring about; whether it came.
inline bool soon(const std::function<bool()> &condition) {
    for (int i = 0; i < 500 && !condition(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return condition();
}

/// Runs the body in a thread with namespaces of its own: CLONE_NEWNS with an empty /usr, or another. False where the
/// machine does not allow that.
inline bool inNamespace(int flags, const std::function<void()> &body) {
    bool allowed = false;
    std::thread([&] {
        allowed = unshare(flags) == 0 &&
                  ((flags & CLONE_NEWNS) == 0 || (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                                                     mount("none", "/usr", "tmpfs", 0, nullptr) == 0));
        if (allowed) body();
    }).join();
    return allowed;
}

}  // namespace vextest

#endif
