#ifndef VEXTEST_CHILD_H
#define VEXTEST_CHILD_H

#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace vextest {

/// What a child process left behind.
struct ChildResult {
    int exit_status = -1;  ///< -1 when a signal ended it
    int signal = 0;
    std::string out;  ///< its standard output
    std::string err;  ///< its standard error
};

/// Runs @p body in a forked child, for what ends the process; a body that returns ends it with
/// status 0.
ChildResult runChild(const std::function<void()> &body);

/// Runs @p body in that many forked children at once; the exit statuses that it gives, 128 plus the signal where one
/// ended it.
std::vector<int> inChildren(int count, const std::function<int()> &body);
inline int inChild(const std::function<int()> &body) { return inChildren(1, body)[0]; }

/// Runs the body in that many threads at once; each gets its number.
inline void inThreads(int count, const std::function<void(int)> &body) {
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) threads.emplace_back(body, i);
    for (auto &thread : threads) thread.join();
}

/// Runs the body in a thread with namespaces of its own: CLONE_NEWNS with an empty /usr, or another. False where the
/// machine does not allow that.
bool inNamespace(int flags, const std::function<void()> &body);

}  // namespace vextest

#endif
