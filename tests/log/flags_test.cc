#include "support/test.h"

TEST(LogFlags, ParsesPresetsWordsAndExtrasAnywhereInTheText) {
    static const std::pair<const char *, int> kRows[] = {{nullptr, 0}, {"", 0}, {" ", -1}, {"nonsense", -1},
        {"thread,date", -1}, {"none,thread", 0}, {"nonexistent", 0}, {"short,thread", 143 | 0x8000},
        {"long,trace", 159}, {"verbose, short", 143}, {"along", 159}, {"MINIMAL Date", 139 | 0x800}, {"bug,trace", 192},
        {"debug", 128}, {"author", 8}, {"warning error", 6}, {"full", 2303},
        {"crit notice silent timing", 1 | 32 | 0x4000 | 0x40000}};
    for (const auto &[text, flags] : kRows) EXPECT_EQ(flags, vexLogParseFlagsA(text)) << (text ? text : "NULL");
}

TEST(LogFlags, PrintsTheLargestPresetAndTheExtrasCutToTheRoom) {
    static const std::tuple<int, size_t, const char *> kRows[] = {{0, 64, "none"}, {64, 64, "none"},
        {139, 64, "minimal"}, {255, 64, "verbose"}, {2303 | 0x8000, 64, "full, threadid, date"},
        {143 | 0x4000 | 0x40000, 64, "short, silent, timing"}, {0, 4, "non"}, {0, 3, "(unknown)"}};
    char buffer[64];
    for (const auto &[flags, size, text] : kRows) EXPECT_STREQ(text, vexLogFlagsToString(flags, buffer, size));
    EXPECT_STREQ("(unknown)", vexLogFlagsToString(0, nullptr, 64));
}
