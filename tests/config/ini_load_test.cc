// What the grammar makes of a file, and how a load and save give it back.

#include <vex/inifile.h>

#include "support/test.h"

namespace {

using testing::ElementsAre;

std::string value(const char *section, const char *key, const std::string &path) {
    char buf[256];
    InifileGetValueA(section, key, buf, sizeof buf, "(none)", path.c_str());
    return buf;
}

class IniLoad : public testing::Test {
protected:
    ~IniLoad() override { InifileReleaseAll(); }
    std::string load(const std::string &text) {
        InifileReleaseAll();
        vextest::writeFile(path_, text);
        EXPECT_EQ(0, InifileLoadA(path_.c_str()));
        return path_;
    }
    std::string saved() {
        EXPECT_EQ(0, InifileSaveA(path_.c_str()));
        return vextest::readFile(path_);
    }
    vextest::TempDir dir_;
    const std::string path_ = dir_ / "a.ini";
};

TEST_F(IniLoad, KeepsCommentsOrderAndDuplicatesThroughALoadAndSave) {
    static const struct {
        const char *name, *text, *saved;
    } kRows[] = {
        {"empty", "", ""},
        {"blanks around names and values", "  key \t=  a value \v\n", "key=a value\n"},
        {"first = splits, quotes and markers stay", "k=a=b;c#\"d\"\n", "k=a=b;c#\"d\"\n"},
        {"comments", "; top\n\n[s]\n# why\nk=1\n\n; end", "; top\n\n[s]\n# why\nk=1\n\n; end"},
        {"comment split by a line that is skipped", "; a\n\x01junk\n; b\nk=1\n", "; a\n; b\nk=1\n"},
        {"no section", "a=1\n[s]\nb=2\n", "a=1\n[s]\nb=2\n"},
        {"sections that differ in case merge", "[Net]\na=1\n[b]\n; new\n[NET]\nc=3\nA=4\n",
            "; new\n[Net]\na=1\nA=4\nc=3\n[b]\n"},
        {"three values of one key", "[s]\nk=1\nother=x\nK=2\nk=3\n", "[s]\nk=1\nK=2\nk=3\nother=x\n"},
        {"every line break", "[s]\r\na=1\rb=2\r\n\r\nc=3\n", "[s]\na=1\nb=2\n\r\nc=3\n"},
        {"long names fold", "[s]\nLONGER-THAN-8@=1\nlonger-than-8@=2\n", "[s]\nLONGER-THAN-8@=1\nlonger-than-8@=2\n"},
        {"only letters fold", "[s]\nk@y=1\nb=2\nk`y=3\n", "[s]\nk@y=1\nb=2\nk`y=3\n"},
        {"text behind the bracket goes", "[a b ]x]\nk=1", "[a b ]\nk=1\n"},
        {"ends at a NUL", nullptr, "a=1\n"},
        {"byte-order mark makes line 1 odd", "\xef\xbb\xbf[s]\nk=1\n", "k=1\n"},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.name);
        vextest::LogCapture log;
        load(row.text != nullptr ? row.text : std::string("a=1\0b=2\n", 8));
        EXPECT_EQ(row.saved, saved());
        EXPECT_THAT(log.lines(), ElementsAre());
    }
}

TEST_F(IniLoad, ReportsEachBrokenLineOnceAndSkipsIt) {
    vextest::LogCapture log;
    load("[a]\r\nk=1\n[broken\nlost\n = 5\n\xe4=1\nm=2\n");
    EXPECT_THAT(log.lines(),
        ElementsAre("22 Syntax error on line 3 while parsing configuration file " + path_ + ": \"]\" expected.",
            "22 Syntax error on line 4 while parsing configuration file " + path_ + ": \"=\" expected.",
            "22 Syntax error on line 5 while parsing configuration file " + path_));
    EXPECT_EQ("2", value("a", "m", path_)) << "a broken header leaves the section as it was";
    EXPECT_EQ("[a]\r\nk=1\n[broken\nlost\n = 5\n\xe4=1\nm=2\n", vextest::readFile(path_));
}

TEST_F(IniLoad, NeverReplacesAFileThatItCouldNotRead) {
    ASSERT_EQ(0, truncate(load("").c_str(), (64 << 20) + 1));
    const std::string folder = dir_ / "folder", loop = dir_ / "loop";
    ASSERT_EQ(0, mkdir(folder.c_str(), 0755));
    ASSERT_EQ(0, symlink("loop", loop.c_str()));
    const struct {
        std::string path;
        int err;
        const char *text;
    } rows[] = {{path_, EFBIG, "File too large"}, {folder, EISDIR, "Is a directory"},
        {loop, ELOOP, "Too many levels of symbolic links"}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        InifileReleaseAll();
        vextest::LogCapture log;
        EXPECT_EQ(0, InifileLoadA(row.path.c_str()));
        EXPECT_EQ("(none)", value("s", "k", row.path));
        EXPECT_EQ(-1, InifileSaveA(row.path.c_str()));
        EXPECT_EQ(row.err, errno);
        EXPECT_EQ(-1, InifileFlushAll());
        const std::string refusal = std::to_string(row.err) + " inifileSave: will not replace " + row.path +
                                    ", which could not be read: " + row.text;
        EXPECT_THAT(
            log.lines(), ElementsAre(std::to_string(row.err) + " inifileAdd: could not read configuration file " +
                                         row.path + ": " + row.text,
                             refusal, refusal));
    }
    EXPECT_THAT(dir_.list(), ElementsAre("a.ini", "folder", "loop"));
}

TEST_F(IniLoad, ReadsAgainOnlyWhatChangedOnDiskAndHoldsNothingUnsaved) {
    load("[s]\nk=1\n");
    const auto rewrite = [&](const char *text, time_t seconds) {
        vextest::writeFile(path_, text);
        const timespec times[2] = {{seconds, 0}, {seconds, 0}};
        ASSERT_EQ(0, utimensat(AT_FDCWD, path_.c_str(), times, 0));
        ASSERT_EQ(0, InifileLoadA(path_.c_str()));
    };
    rewrite("[s]\nk=2\n", 1000);
    EXPECT_EQ("2", value("s", "k", path_));
    ASSERT_EQ(0, InifileSaveIntegerA("s", "mine", 5, path_.c_str()));
    rewrite("[s]\nk=3\n", 2000);
    EXPECT_EQ("2", value("s", "k", path_)) << "unsaved changes win";
    EXPECT_EQ(0, InifileReleaseA(path_.c_str()));
    EXPECT_EQ("3", value("s", "k", path_));
    EXPECT_EQ("(none)", value("s", "mine", path_));
    EXPECT_EQ(0, InifileReleaseA(path_.c_str()));
    EXPECT_FAILS(ENOENT, -1, InifileReleaseA(path_.c_str()));
}

TEST_F(IniLoad, PrintsWhatIsLoaded) {
    load("; head\n[s]\nk=a\"b\n[empty]\n");
    testing::internal::CaptureStdout();
    inifilePrintLoadedFiles();
    inifilePrintLoadedFileContents();
    InifileReleaseAll();
    inifilePrintLoadedFiles();
    EXPECT_EQ("Currently loaded INI files:\n\tFile #1: char str: \"" + path_ +
                  "\"\n"
                  "\tFile 1: \"" +
                  path_ +
                  "\" (modified: no)\n\t\t; head\\n\n\t\tSection \"s\"\n"
                  "\t\t\t\"k\" = \"a\\\"b\"\n\t\tSection \"empty\"\n\t\t\tNo entries found.\n"
                  "No INI files are currently loaded. :(\n",
        testing::internal::GetCapturedStdout());
}

}  // namespace
