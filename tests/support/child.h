#ifndef VEXTEST_CHILD_H
#define VEXTEST_CHILD_H

#include <functional>
#include <string>

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

}  // namespace vextest

#endif
