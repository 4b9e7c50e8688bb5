#include "support/child.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "support/temp_dir.h"

namespace vextest {

ChildResult runChild(const std::function<void()> &body) {
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
    ChildResult result;
    if (WIFEXITED(status)) result.exit_status = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
    result.out = readFile(out);
    result.err = readFile(err);
    return result;
}

std::vector<int> inChildren(int count, const std::function<int()> &body) {
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

bool inNamespace(int flags, const std::function<void()> &body) {
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
