#include <vex/file.h>

#include "support/test.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::wstring widen(const std::string &text) { return {text.begin(), text.end()}; }

TEST(CreateTree, MakesWhatIsMissingInBothWidths) {
    vextest::TempDir dir;
    vextest::LogCapture log;
    const mode_t mask = umask(022);
    EXPECT_EQ(0, CreateTreeA((dir / "a\\b//c/").c_str(), 0));
    EXPECT_EQ(0, CreateTreeA((dir / "a/b/c").c_str(), 0700));
    EXPECT_EQ(0, CreateTreeW((widen(dir.path()) + L"/w/\x20ac\xdcff").c_str(), 0700));
    EXPECT_EQ(0, CreateDirA((dir / "w").c_str(), 0700));
    EXPECT_EQ(0, CreateDirW((widen(dir.path()) + L"/d").c_str(), 0700));
    (void)umask(mask);
    EXPECT_EQ(0755u, vextest::modeOf(dir / "a/b/c"));
    EXPECT_EQ(0700u, vextest::modeOf(dir / "w/\xe2\x82\xac\xff"));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(CreateTree, NamesTheEntryPointAndIsSilentOnRequest) {
    vextest::TempDir dir;
    vextest::writeFile(dir / "file", "");
    const std::string half(3000, 'x');
    const struct {
        std::string path;
        int err;
        const char *line;
    } kRows[] = {{dir / "file", ENOTDIR, "20 %s: could not create directory"},
        {dir / "file/x", ENOTDIR, "20 %s: could not create directory"}, {"", EINVAL, "22 %s: invalid NULL path"},
        {"/" + std::string(4095, 'x'), ENAMETOOLONG, "36 %s: source path too long"},
        {"/" + std::string(4094, 'x'), ENAMETOOLONG, "36 %s: path too long with slash"}};
    for (const auto &row : kRows) {
        vextest::LogCapture log;
        const auto line = [&](const std::string &who) { return std::string(row.line).replace(3, 2, who); };
        EXPECT_EQ(-1, CreateTreeLoggingOptionalA(row.path.c_str(), 0, 0));
        EXPECT_EQ(-1, CreateTreeLoggingOptionalW(widen(row.path).c_str(), 0, 0));
        EXPECT_EQ(row.err, errno);
        EXPECT_THAT(log.lines(), IsEmpty());
        EXPECT_EQ(-1, CreateTreeA(row.path.c_str(), 0));
        EXPECT_EQ(-1, CreateTreeLoggingOptionalW(widen(row.path).c_str(), 0, 1));
        EXPECT_THAT(log.lines(), ElementsAre(line("CreateTreeA"), line("CreateTreeLoggingOptionalW")));
    }
    vextest::LogCapture log;
    EXPECT_EQ(-1, CreateTreeW(std::wstring(2000, L'\x20ac').c_str(), 0));
    EXPECT_THAT(log.lines(), ElementsAre("36 CreateTreeW: destination path too long"));
}

TEST(DeleteTree, RemovesLinksButNotWhatTheyPointTo) {
    vextest::TempDir dir;
    vextest::LogCapture log;
    const std::string root = dir / "root";
    std::filesystem::create_directories(root + "/a/b/\xff");
    std::filesystem::create_directory(dir / "kept");
    vextest::writeFile(dir / "kept/file", "x");
    for (const char *name : {"/a/f", "/a/b/g", "/h"}) vextest::writeFile(root + name, "");
    std::filesystem::create_directory_symlink(dir / "kept", root + "/a/link");
    std::filesystem::create_directory_symlink(dir / "kept", dir / "link");
    const int descriptors = vextest::openDescriptors();
    EXPECT_EQ(0, DeleteTreeW(widen(dir / "link/").c_str()));
    EXPECT_EQ(0, DeleteTreeA((root + "/").c_str()));
    EXPECT_EQ(descriptors, vextest::openDescriptors());
    EXPECT_THAT(dir.list(), ElementsAre("kept"));
    EXPECT_EQ("x", vextest::readFile(dir / "kept/file"));
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_FAILS(ENOENT, -1, DeleteTreeA(root.c_str()));
    EXPECT_EQ(-1, DeleteTreeW(L"\xd800"));
    EXPECT_THAT(log.lines(),
        ElementsAre("2 DeleteTreeA: unable to open directory: " + root, "84 DeleteTreeW: could not convert path"));
}

TEST(DeleteTree, GoesOnAfterAFailureAndReturnsTheFirst) {
    vextest::TempDir dir;
    const std::string root = dir / "root";
    (void)vextest::forEachFault({"openat", "unlinkat"}, EACCES, [&](const vextest::FaultScope &scope) {
        {
            vextest::FaultPause pause;
            std::filesystem::create_directories(root + "/a/b");
            vextest::writeFile(root + "/a/f", "");
            vextest::writeFile(root + "/g", "");
        }
        vextest::LogCapture log;
        const int result = DeleteTreeA(root.c_str());
        EXPECT_EQ(scope.fired() ? -1 : 0, result);
        EXPECT_EQ(scope.fired() ? EACCES : errno, errno);
        EXPECT_EQ(scope.fired(), !log.lines().empty());
    });
}

}  // namespace
