#include "support/test.h"

static std::wstring widen(const std::string &text) { return {text.begin(), text.end()}; }

using CreateTree = FolderTest;
using DeleteTree = FolderTest;

TEST_F(CreateTree, MakesWhatIsMissingInBothWidths) {
    const mode_t mask = umask(022);
    EXPECT_EQ(0, CreateTreeA((dir / "a\\b//c/").c_str(), 0));
    EXPECT_EQ(0, CreateTreeA((dir / "a/b/c").c_str(), 0700));
    EXPECT_EQ(0, CreateTreeW((widen(dir.path()) + L"/w/\x20ac\xdcff").c_str(), 0700));
    EXPECT_EQ(0, CreateDirA((dir / "w").c_str(), 0700));
    EXPECT_EQ(0, CreateDirW((widen(dir.path()) + L"/d").c_str(), 0700));
    (void)umask(mask);
    EXPECT_EQ(0755u, modeOf(dir / "a/b/c"));
    EXPECT_EQ(0700u, modeOf(dir / "w/\xe2\x82\xac\xff"));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(CreateTree, NamesTheEntryPointAndIsSilentOnRequest) {
    writeFile(path, "");
    const std::tuple<std::string, int, std::string> kRows[] = {{path, ENOTDIR, "could not create directory"},
        {path + "/x", ENOTDIR, "could not create directory"}, {"", EINVAL, "invalid NULL path"},
        {"/" + std::string(4095, 'x'), ENAMETOOLONG, "source path too long"},
        {"/" + std::string(4094, 'x'), ENAMETOOLONG, "path too long with slash"}};
    for (const auto &[name, err, text] : kRows) {
        const std::wstring wide = widen(name);
        const std::string code = std::to_string(err) + " ";
        EXPECT_FAILS_LOGGING("", err, -1, CreateTreeLoggingOptionalA(name.c_str(), 0, 0));
        EXPECT_FAILS_LOGGING("", err, -1, CreateTreeLoggingOptionalW(wide.c_str(), 0, 0));
        EXPECT_FAILS_WITH(code + "CreateTreeA: " + text, -1, CreateTreeA(name.c_str(), 0));
        EXPECT_FAILS_WITH(code + "CreateTreeW: " + text, -1, CreateTreeW(wide.c_str(), 0));
    }
    EXPECT_FAILS_WITH(
        "36 CreateTreeW: destination path too long", -1, CreateTreeW(std::wstring(2000, L'\x20ac').c_str(), 0));
}

TEST_F(DeleteTree, RemovesLinksButNotWhatTheyPointTo) {
    const std::string root = dir / "root";
    std::filesystem::create_directories(root + "/a/b/\xff");
    std::filesystem::create_directory(dir / "kept");
    writeFile(dir / "kept/file", "x");
    for (const char *name : {"/a/f", "/a/b/g", "/h"}) writeFile(root + name, "");
    std::filesystem::create_directory_symlink(dir / "kept", root + "/a/link");
    std::filesystem::create_directory_symlink(dir / "kept", dir / "link");
    EXPECT_EQ(0, DeleteTreeW(widen(dir / "link/").c_str()));
    EXPECT_EQ(0, DeleteTreeA((root + "/").c_str()));
    EXPECT_THAT(dir.list(), ElementsAre("kept"));
    EXPECT_EQ("", log.text());
    std::filesystem::create_directory(root);
    std::filesystem::create_directory_symlink(dir / "kept", root + "/link");
    {
        FaultScope race("unlinkat", 1, EISDIR);  // as for a directory that a link has just replaced
        EXPECT_EQ(-1, DeleteTreeA(root.c_str()));
    }
    EXPECT_EQ(0, DeleteTreeA(root.c_str()));
    EXPECT_EQ("x", readFile(dir / "kept/file"));
    EXPECT_FAILS_WITH("2 DeleteTreeA: unable to open directory: " + root, -1, DeleteTreeA(root.c_str()));
    EXPECT_FAILS_WITH("84 DeleteTreeW: could not convert path", -1, DeleteTreeW(L"\xd800"));
}

TEST_F(DeleteTree, GoesOnAfterAFailureAndReturnsTheFirst) {
    const std::string root = dir / "root";
    (void)forEachFault({"openat", "unlinkat"}, EACCES, [&](const FaultScope &scope) {
        {
            FaultPause pause;
            std::filesystem::create_directories(root + "/a/b");
            writeFile(root + "/a/f", "");
            writeFile(root + "/g", "");
        }
        EXPECT_EQ(scope.fired() ? -1 : 0, DeleteTreeA(root.c_str()));
        EXPECT_EQ(scope.fired() ? EACCES : errno, errno);
        EXPECT_EQ(scope.fired(), !log.take().empty());
    });
}
