// What every test of the library uses, under plain names: GoogleTest, the system's calls, the library and its test kit.
#ifndef VEXTEST_TEST_H
#define VEXTEST_TEST_H

#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <string.h>
#include <sys/stat.h>

#include <atomic>
#include <climits>
#include <cmath>
#include <map>
#include <memory>
#include <optional>
#include <sstream>

#include <vex/vex.h>

#include "base/unique_fd.h"
#include "support/child.h"
#include "support/data.h"
#include "support/faults.h"
#include "support/log_capture.h"

namespace vextest {

/// A test with a folder of its own; what it logs is collected. It must leave no descriptor open, and leaves no ini file
/// in memory.
struct FolderTest : testing::Test {
    ~FolderTest() override {
        InifileReleaseAll();
        EXPECT_GE(descriptors, openDescriptors());
    }
    const int descriptors = openDescriptors();
    const TempDir dir;
    const std::string path = dir / "file";
    LogCapture log;
};

}  // namespace vextest

using namespace vextest;
using testing::AnyOf, testing::Contains, testing::ElementsAre, testing::HasSubstr, testing::IsEmpty;
using testing::MatchesRegex, testing::Not, testing::PrintToString, testing::StartsWith, testing::Test;

#endif
