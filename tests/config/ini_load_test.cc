// What the grammar makes of a file, and how a load and save give it back.

#include "support/test.h"

using std::string_view_literals::operator""sv;

struct IniLoad : FolderTest {
    std::string value(const char *key, const char *file = nullptr) {
        char buf[256];
        return InifileGetValueA("s", key, buf, sizeof buf, "(none)", file != nullptr ? file : path.c_str()), buf;
    }
    std::string load(const std::string &text) {
        InifileReleaseAll();
        writeFile(path, text);
        EXPECT_EQ(0, InifileLoadA(path.c_str()));
        return path;
    }
};

TEST_F(IniLoad, KeepsCommentsOrderAndDuplicatesThroughALoadAndSave) {
    // blanks go around names and values, the first '=' splits, sections and keys meet whatever their case, text behind
    // a bracket goes, a byte-order mark makes line 1 odd
    for (const auto &row : table(2,
             "||  key \t=  a value \v\n|key=a value\n|k=a=b;c#\"d\"\n|k=a=b;c#\"d\"\n|"
             "; top\n\n[s]\n# why\nk=1\n\n; end|; top\n\n[s]\n# why\nk=1\n\n; end|"
             "; a\n\x01junk\n; b\nk=1\n|; a\n; b\nk=1\n|a=1\n[s]\nb=2\n|a=1\n[s]\nb=2\n|"
             "[Net]\na=1\n[b]\n; new\n[NET]\nc=3\nA=4\n|; new\n[Net]\na=1\nA=4\nc=3\n[b]\n|"
             "[s]\nk=1\nother=x\nK=2\nk=3\n|[s]\nk=1\nK=2\nk=3\nother=x\n|"
             "[s]\r\na=1\rb=2\r\n\r\nc=3\n|[s]\na=1\nb=2\n\r\nc=3\n|"
             "[s]\nLONGER-THAN-8@=1\nlonger-than-8@=2\n|[s]\nLONGER-THAN-8@=1\nlonger-than-8@=2\n|"
             "[s]\nk@y=1\nb=2\nk`y=3\n|[s]\nk@y=1\nb=2\nk`y=3\n|[a b ]x]\nk=1|[a b ]\nk=1\n|"
             "\xef\xbb\xbf[s]\nk=1\n|k=1\n|a=1\0b=2\n|a=1\n|"sv)) {
        EXPECT_EQ(0, InifileSaveA(load(row[0]).c_str()));
        EXPECT_EQ(row[1], readFile(path));
        EXPECT_EQ("", log.text());
    }
}

TEST_F(IniLoad, ReportsEachBrokenLineOnceAndSkipsIt) {
    const std::string text = "[s]\r\nk=1\n[broken\nlost\n = 5\n\xe4=1\nm=2\n",
                      end = " while parsing configuration file " + path;
    load(text);
    EXPECT_EQ("22 Syntax error on line 3" + end + ": \"]\" expected.\n22 Syntax error on line 4" + end +
                  ": \"=\" expected.\n22 Syntax error on line 5" + end,
        log.text());
    EXPECT_EQ("2", value("m")) << "a broken header leaves the section as it was";
    EXPECT_EQ(text, readFile(path));
}

TEST_F(IniLoad, NeverReplacesAFileThatItCouldNotRead) {
    ASSERT_EQ(0, truncate(load("").c_str(), (64 << 20) + 1));
    const std::string folder = dir / "folder", loop = dir / "loop";
    ASSERT_EQ(0, mkdir(folder.c_str(), 0755) + symlink("loop", loop.c_str()));
    for (const auto &[file, err] : {std::pair(path, EFBIG), std::pair(folder, EISDIR), std::pair(loop, ELOOP)}) {
        SCOPED_TRACE(file);
        InifileReleaseAll();
        EXPECT_EQ(0, InifileLoadA(file.c_str()));
        EXPECT_EQ("(none)", value("k", file.c_str()));
        EXPECT_FAILS(err, -1, InifileSaveA(file.c_str()));
        EXPECT_EQ(-1, InifileFlushAll());
        const std::string code = std::to_string(err) + " ", text = strerror(err),
                          refusal = "\n" + code + "inifileSave: will not replace " + file +
                                    ", which could not be read: " + text;
        EXPECT_EQ(code + "inifileAdd: could not read configuration file " + file + ": " + text + refusal + refusal,
            log.take());
    }
    EXPECT_THAT(dir.list(), ElementsAre("file", "folder", "loop"));
}

TEST_F(IniLoad, ReadsAgainOnlyWhatChangedOnDiskAndHoldsNothingUnsaved) {
    load("[s]\nk=1\n");
    const auto rewrite = [&](const char *text, time_t seconds) {
        writeFile(path, text);
        const timespec times[2] = {{seconds, 0}, {seconds, 0}};
        ASSERT_EQ(0, utimensat(AT_FDCWD, path.c_str(), times, 0));
        ASSERT_EQ(0, InifileLoadA(path.c_str()));
    };
    rewrite("[s]\nk=2\n", 1000);
    EXPECT_EQ("2", value("k"));
    ASSERT_EQ(0, InifileSaveIntegerA("s", "mine", 5, path.c_str()));
    rewrite("[s]\nk=3\n", 2000);
    EXPECT_EQ("2", value("k")) << "unsaved changes win";
    EXPECT_EQ(0, InifileReleaseA(path.c_str()));
    EXPECT_EQ("3", value("k"));
    EXPECT_EQ("(none)", value("mine"));
    EXPECT_EQ(0, InifileReleaseA(path.c_str()));
    EXPECT_FAILS(ENOENT, -1, InifileReleaseA(path.c_str()));
}

TEST_F(IniLoad, PrintsWhatIsLoaded) {
    load("; head\n[s]\nk=a\"b\n[empty]\n");
    testing::internal::CaptureStdout();
    inifilePrintLoadedFiles();
    inifilePrintLoadedFileContents();
    InifileReleaseAll();
    inifilePrintLoadedFiles();
    EXPECT_EQ("Currently loaded INI files:\n\tFile #1: char str: \"" + path + "\"\n\tFile 1: \"" + path +
                  "\" (modified: no)\n\t\t; head\\n\n\t\tSection \"s\"\n\t\t\t\"k\" = \"a\\\"b\"\n\t\tSection "
                  "\"empty\"\n\t\t\tNo entries found.\nNo INI files are currently loaded. :(\n",
        testing::internal::GetCapturedStdout());
}
