#ifndef VEXTEST_FAILURES_H
#define VEXTEST_FAILURES_H

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <string>
#include <vector>

#include "support/log_capture.h"

/// The call gives the result of a failure and leaves its errno.
#define EXPECT_FAILS(error, result, call) \
    do {                                  \
        errno = 0;                        \
        EXPECT_EQ(result, call);          \
        EXPECT_EQ(error, errno);          \
    } while (false)

/// The same with one log line, whose code errno holds then: "22 who: why".
#define EXPECT_FAILS_WITH(line, result, call)            \
    do {                                                 \
        const std::string expected(line);                \
        vextest::LogCapture logged;                      \
        EXPECT_FAILS(std::stoi(expected), result, call); \
        EXPECT_EQ(expected, logged.text());              \
    } while (false)

namespace vextest {

/// A call that must fail: what it logs, lines separated by newlines, what it leaves in errno, and the result it gives.
struct Failure {
    std::string log;
    int error;
    long result;
    std::function<long()> call;
};

inline void expectFailures(const std::vector<Failure> &rows) {
    for (const auto &row : rows) {
        SCOPED_TRACE(row.log + " / " + std::to_string(&row - rows.data()));
        LogCapture log;
        errno = 0;
        EXPECT_EQ(row.result, row.call());
        EXPECT_EQ(row.error, errno);
        EXPECT_EQ(row.log, log.text());
    }
}

}  // namespace vextest

#endif
