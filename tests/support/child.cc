#include "support/child.h"

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

}  // namespace vextest
