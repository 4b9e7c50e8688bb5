#include "support/test.h"

namespace {

TEST(Os, SummaryHasOneLinePerFactAndReportsAFailedWrite) {
    char *text = nullptr;
    size_t size = 0;
    FILE *out = open_memstream(&text, &size);
    EXPECT_EQ(0, OSTest(out));
    fclose(out);
    std::vector<std::string> names;
    for (const char *line = text; *line != '\0'; line = strchr(line, '\n') + 1) {
        EXPECT_EQ(0, strncmp(line + 13, ": ", 2)) << line;
        EXPECT_NE('\n', line[15]) << line;
        names.emplace_back(line, strcspn(line, ":"));
    }
    EXPECT_THAT(names, ElementsAre("System       ", "Release      ", "Machine      ", "Processors   ", "Memory       ",
                           "Swap         ", "Uptime       ", "Open files   ", "Core size    ", "Locked memory"));
    free(text);
    out = fopen("/dev/full", "w");
    LogCapture log;
    EXPECT_FAILS(ENOSPC, -1, OSTest(out));
    EXPECT_THAT(log.lines(), ElementsAre("28 OSTest: could not write: No space left on device"));
    fclose(out);
}

TEST(Os, EnvironmentAndProcessName) {
    setenv("VEX_TEST_VARIABLE", "x", 1);
    EXPECT_STREQ("x", vex_getenv("VEX_TEST_VARIABLE"));
    EXPECT_EQ(nullptr, vex_getenv("VEX_TEST_ABSENT"));
    EXPECT_EQ(nullptr, vex_getenv(""));
    EXPECT_EQ(nullptr, vex_getenv(nullptr));
    EXPECT_STREQ("os_test", VexProcessName());
}

}  // namespace
