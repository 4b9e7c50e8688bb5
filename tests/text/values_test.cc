#include <clocale>

#include "support/test.h"

static std::wstring widen(const std::string &text) { return {text.begin(), text.end()}; }

/// "value@end errno" of a parser's narrow form, and the same of its wide twin.
template <typename Narrow, typename Wide>
static std::pair<std::string, std::string> parseBoth(const std::string &text, Narrow narrow, Wide wide) {
    const std::wstring wide_text = widen(text);
    const char *end = nullptr;
    const wchar_t *wide_end = nullptr;
    const auto show = [](auto value, auto used) {
        return std::to_string(value) + "@" + std::to_string(used) + " " + std::to_string(errno);
    };
    errno = EDOM;
    const auto value = narrow(text.c_str(), &end);
    const std::string first = show(value, end - text.c_str());
    errno = EDOM;
    const auto wide_value = wide(wide_text.c_str(), &wide_end);
    return {first, show(wide_value, wide_end - wide_text.c_str())};
}

TEST(SizeFromText, BothWidthsAgreeOnValueEndAndErrno) {
    LogCapture log;
    for (const auto &row : table(2,
             "10k|10000@3 0|10KiB|10240@5 0|10kb x|10000@4 0|1E5|1000000000000000000@2 0|12x|12@2 0|abc|0@0 0|b|0@1 0|"
             "7|7@1 0|10bb|10@3 0| +2gI|2147483648@5 0|3tib|3298534883328@4 0|1p|1000000000000000@2 0|5mI|5242880@3 0|"
             "15Ei|17293822569102704640@4 0|18014398509481983Ki|18446744073709550592@19 0|"
             "18446744073709551615|18446744073709551615@20 0|99999999999999999999K|18446744073709551615@20 34|")) {
        SCOPED_TRACE(row[0]);
        EXPECT_EQ(std::pair(row[1], row[1]), parseBoth(row[0], strtosize, wcstosize));
    }
    EXPECT_THAT(log.lines(), IsEmpty());
    for (const auto &row : table(2, "16Ei|@4|18014398509481984Ki|@19|20EB|@4|")) {
        const std::string expected = "18446744073709551615" + row[1] + " 34";
        EXPECT_EQ(std::pair(expected, expected), parseBoth(row[0], strtosize, wcstosize));
        EXPECT_EQ("34 strtosize: number above positive range\n34 wcstosize: number above positive range", log.take());
    }
}

TEST(BoolFromText, MatchesPrefixesInOrderInBothWidths) {
    LogCapture log;
    for (const auto &row : table(2,
             "YES|1@3 33|Yellow|1@1 33|10|1@1 33|TRUE|1@4 33|tomorrow|1@1 33|No|0@2 33|"
             "n|0@1 33|0|0@1 33|falsehood|0@5 33|fast|0@1 33|"))
        EXPECT_EQ(std::pair(row[1], row[1]), parseBoth(row[0], strtobool, wcstobool)) << row[0];
    EXPECT_THAT(log.lines(), IsEmpty());
    for (const char *text : {"maybe", "on", "off", " yes", ""}) {
        EXPECT_EQ(std::pair(std::string("0@0 34"), std::string("0@0 34")), parseBoth(text, strtobool, wcstobool));
        EXPECT_EQ("34 strtobool: value outside of range\n34 wcstobool: value outside of range", log.take());
    }
}

TEST(PercentFromText, TakesOneSignAndWhiteSpaceOnlyWhateverTheLocale) {
    for (const char *locale : {"C", "de_DE.UTF-8"}) {
        (void)setlocale(LC_NUMERIC, locale);  // where it is not installed C is tried twice
        for (const auto &row : table(2,
                 "12.5%|12.500000|12.5 % |12.500000|0%|0.000000| -3e2\t%|-300.000000|"
                 "12.5||12.5%%||12.5%x||%||||1e-999%||12,5%||")) {
            double value = 99;
            EXPECT_EQ(row[1].empty() ? 0 : 1, strpercentotvalue(row[0].c_str(), &value)) << row[0];
            EXPECT_EQ(row[1].empty() ? 99.0 : std::stod(row[1]), value) << row[0];
        }
        (void)setlocale(LC_NUMERIC, "C");
    }
}

TEST(SizeToText, PrintsRightAlignedInTheUnitThatDividesMostOften) {
    LogCapture log;
    char buffer[64];
    wchar_t wide[64];
    for (const auto &row : table(2,
             "0|0|1024|1KiB|1000|1KB|1024000|1000KiB|1500|1500|1048576|1MiB|1000000000000000000|1EB|"
             "1152921504606846976|1EiB|18446744073709551615|18446744073709551615|")) {
        SCOPED_TRACE(row[0]);
        const uint64_t value = std::stoull(row[0]);
        for (const size_t room : {sizeof buffer, row[1].size() + 1}) {
            EXPECT_EQ(buffer + room - 1 - row[1].size(), sizetostr(buffer, room, value));
            EXPECT_EQ(row[1], sizetostr(buffer, room, value));
            EXPECT_EQ(widen(row[1]), sizetowcs(wide, room, value));
        }
        EXPECT_FAILS(ENOBUFS, nullptr, sizetostr(buffer, row[1].size(), value));
    }
    EXPECT_THAT(log.lines(), IsEmpty());  // the digits alone did not fit
    EXPECT_EQ(nullptr, sizetostr(buffer, 3, 1024));
    EXPECT_EQ(nullptr, sizetowcs(wide, 0, 1));
    EXPECT_THAT(log.lines(), ElementsAre("105 sizetostr: buffer too short", "22 sizetowcs: invalid NULL parameter"));
}

TEST(SizeToRoundedText, ChangesUnitAt1025AndShowsNoFractionOfMultiples) {
    LogCapture log;
    char buffer[128];
    wchar_t wide[128];
    for (const auto &row : table(3,
             "0|2|0 bytes|1024|2|1024 bytes|1025|2|1.00 KiB|1536|2|1.50 KiB|1536|0|2 KiB|"
             "2048|5|2 KiB|1048576|1|1024 KiB|1049600|2|1.00 MiB|2097152|3|2 MiB|18446744073709551615|1|16.0 EiB|"
             "1025|12|1.000976562500 KiB|"
             "1025|70|1.0009765625000000000000000000000000000000000000000000000000000000000000 KiB|")) {
        SCOPED_TRACE(row[2]);
        const uint64_t value = std::stoull(row[0]);
        const int precision = std::stoi(row[1]);
        EXPECT_EQ(buffer, sizetofloatstr(buffer, row[2].size() + 1, value, precision));
        EXPECT_EQ(row[2], buffer);
        EXPECT_EQ(wide, sizetofloatwcs(wide, row[2].size() + 1, value, precision));
        EXPECT_EQ(widen(row[2]), wide);
        EXPECT_FAILS(ENOBUFS, nullptr, sizetofloatstr(buffer, row[2].size(), value, precision));
    }
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(nullptr, sizetofloatstr(buffer, sizeof buffer, 1, -1));
    EXPECT_THAT(log.lines(), ElementsAre("22 sizetofloatstr: invalid NULL parameter"));
}

TEST(TimeOfDayFromText, ReadsOrNamesTheBadPart) {
    for (const auto &row : table(4,
             "23:59:59|86399|8||7:5|25500|3||0007:05:1 pm|25501|9||7:05 |25500|4||"
             "24:00|0|0|hour value outside of range or inproper format|7|0|0|hour value outside of range or inproper "
             "format|4294967303:00|0|0|hour value outside of range or inproper format| 7:00|0|0|hour value not a digit|"
             "7:-1|0|0|minute value not a digit|07:60|0|0|minute value outside of range|"
             "7:00:|0|0|second value not a digit|7:00:60|0|0|second value outside of range|")) {
        SCOPED_TRACE(row[0]);
        LogCapture log;
        const char *end = nullptr;
        EXPECT_EQ(std::stoul(row[1]), strtotimeofday(row[0].c_str(), &end));
        EXPECT_EQ(std::stol(row[2]), end - row[0].c_str());
        EXPECT_EQ(row[3].empty() ? "" : "34 strtotimeofday: " + row[3], log.text());
    }
}
