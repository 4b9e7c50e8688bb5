#ifndef VEXTEST_FAILURES_H
#define VEXTEST_FAILURES_H

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "support/log_capture.h"

/// The call gives the result of a failure and leaves its errno.
#define EXPECT_FAILS(error, result, call) \
    do {                                  \
        errno = 0;                        \
        EXPECT_EQ(result, call);          \
        EXPECT_EQ(error, errno);          \
    } while (false)

/// The same with what it logs, lines separated by newlines.
#define EXPECT_FAILS_LOGGING(lines, error, result, call)       \
    do {                                                       \
        const vextest::LogCapture logged;                      \
        EXPECT_FAILS(error, result, call);                     \
        EXPECT_EQ(std::string(lines), logged.text()) << #call; \
    } while (false)

/// The same where errno holds the first line's code: "22 who: why".
#define EXPECT_FAILS_WITH(lines, result, call) EXPECT_FAILS_LOGGING(lines, std::stoi(lines), result, call)

#endif
