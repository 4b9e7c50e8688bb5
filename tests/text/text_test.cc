#include <errno.h>
#include <gtest/gtest.h>

#include <string>

#include <vex/path.h>
#include <vex/text.h>

#include "support/table.h"

namespace {

TEST(BoundedCopy, CutsWithoutOverrunAndTellsSo) {
    for (size_t room = 1; room <= 6; ++room) {
        std::string text = "ab" + std::string(6, '\0');
        text[room] = '#';
        EXPECT_EQ(room > 2 ? 2 : -1, vex_strcpy(text.data(), room, "AB")) << room;
        EXPECT_EQ(room > 5 ? 5 : -1, vex_strcat(text.data(), room, "cde")) << room;
        EXPECT_EQ(std::string("ABcde").substr(0, room - 1), text.c_str());
        EXPECT_EQ('#', text[room]);
    }
    char buffer[15];
    EXPECT_STREQ(R"(a\n\t\r\"\\z)", strcpy_esc(buffer, 13, "a\n\t\r\"\\z"));
    EXPECT_EQ(nullptr, strcpy_esc(buffer, 5, "a\n\t"));
    EXPECT_EQ(ENOBUFS, errno);
    EXPECT_STREQ("a\\n", buffer) << "whole escapes only";
}

TEST(UnsignedFromText, TellsSignsNothingAndOverflowApart) {
    for (const auto &row : vextest::table(4,
             "18446744073709551615x|18446744073709551615|20|0|18446744073709551616|18446744073709551615|20|34|"
             " 0x1F|31|5|0|-1|0|0|22| +1|0|0|22|x|0|0|0|")) {
        char *end = nullptr;
        EXPECT_EQ(std::stoull(row[1]), vex_strtoull(row[0].c_str(), &end, row[0][0] == ' ' ? 0 : 10));
        EXPECT_EQ(std::stoi(row[3]), errno) << row[0];
        EXPECT_EQ(std::stol(row[2]), end - row[0].c_str()) << row[0];
    }
}

TEST(NativePath, BringsSeparatorsIntoForm) {
    for (auto &row : vextest::table(2, "C:\\dir\\\\file|C:/dir/file|//a///b//|/a/b|/|/|\\\\|/|||a/|a|"))
        EXPECT_EQ(row[1], vex_path_native(row[0].data()));
}

}  // namespace
