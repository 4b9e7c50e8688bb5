#include "support/test.h"

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
    EXPECT_FAILS(ENOBUFS, nullptr, strcpy_esc(buffer, 5, "a\n\t"));
    EXPECT_STREQ("a\\n", buffer) << "whole escapes only";
}

TEST(Pieces, CaseTokensTrimmingAndReplacingKeepToAsciiLetters) {
    std::string text = "a\xc3\x84Zz@[`{";
    EXPECT_STREQ("A\xc3\x84ZZ@[`{", vex_strtoupper(text.data()));
    EXPECT_STREQ("a\xc3\x84zz@[`{", vex_strtolower(text.data()));
    for (const auto &row : table(3, "abC|ABc|0|a|B|-1|b|A|1||a|-1|[|a|-1|\xc3|z|1|a||1|")) {
        const auto sign = [](int n) { return (n > 0) - (n < 0); };
        EXPECT_EQ(std::stoi(row[2]), sign(vex_strcasecmp(row[0].c_str(), row[1].c_str()))) << row[0];
    }
    EXPECT_EQ(0, vex_strncasecmp("abx", "ABy", 2));
    EXPECT_GT(0, vex_strncasecmp("abx", "ABy", 3));
    EXPECT_EQ(0, vex_strncasecmp("ab", "AB", 9));
    for (const auto &row : table(3, "needle|NEED|0|hay needle|Eedle|5|aab|AB|1|a|aa|-1|x||0|")) {
        const char *found = vex_strcasestr(row[0].c_str(), row[1].c_str());
        EXPECT_EQ(std::stol(row[2]), found == nullptr ? -1 : found - row[0].c_str());
    }
    for (auto &row : table(2, " \ta b\r\n|a b|  ||||x |x|")) EXPECT_EQ(row[1], vex_strtrim(row[0].data()));
    for (const auto &row : table(4, "aaa|aa|b|ba|a.b.|.|--|a--b--|abc|x|y|abc||a|b||aXbX|X||ab|")) {
        char *replaced = vex_str_replace(row[0].c_str(), row[1].c_str(), row[2].c_str());
        EXPECT_EQ(row[3], replaced);
        free(replaced);
    }
    for (const auto &row : table(2, ",a,;b c,|a+b c+|;,,||x|x+|||")) {
        std::string copy = row[0], joined, tokens;
        std::vector<std::string> pieces{"old"};
        EXPECT_EQ(0, vex_str_split(row[0].c_str(), ",;", pieces));
        for (const auto &piece : pieces) joined += piece + "+";
        char *state = nullptr;
        for (char *at = vex_strtok(copy.data(), ",;", &state); at != nullptr; at = vex_strtok(nullptr, ",;", &state))
            tokens += at + std::string("+");
        EXPECT_EQ(row[1], joined);
        EXPECT_EQ(row[1], tokens);
        EXPECT_EQ(nullptr, vex_strtok(nullptr, ",;", &state));
    }
    EXPECT_FAILS(EINVAL, nullptr, vex_str_replace("a", "", "b"));
    wchar_t wide[4];
    EXPECT_EQ(-1, vex_wcscpy(wide, 4, L"\x20ac\x20acxy"));
    EXPECT_EQ(std::wstring(L"\x20ac\x20acx"), wide);
    EXPECT_EQ(1, vex_wcscpy(wide, 4, L"a"));
    EXPECT_EQ(3, vex_wcscat(wide, 4, L"bc"));
}

TEST(UnsignedFromText, TellsSignsNothingAndOverflowApart) {
    for (const auto &row : table(4,
             "18446744073709551615x|18446744073709551615|20|0|18446744073709551616|18446744073709551615|20|34|"
             " 0x1F|31|5|0|-1|0|0|22| +1|0|0|22|x|0|0|0|")) {
        char *end = nullptr;
        EXPECT_EQ(std::stoull(row[1]), vex_strtoull(row[0].c_str(), &end, row[0][0] == ' ' ? 0 : 10));
        EXPECT_EQ(std::stoi(row[3]), errno) << row[0];
        EXPECT_EQ(std::stol(row[2]), end - row[0].c_str()) << row[0];
    }
}

TEST(Path, TextsComeApartAndTogetherAsPosixSays) {
    for (auto &row : table(2, "C:\\dir\\\\file|C:/dir/file|//a///b//|/a/b|/|/|\\\\|/|||a/|a|"))
        EXPECT_EQ(row[1], vex_path_native(row[0].data()));
    char out[16];
    for (const auto &row : table(3, "/a/b|/a|b|a/b//|a|b//|a|.|a|/|/|/|//|/|//|/a|/|a|||.|a//b|a|b|")) {
        const std::string name = row[0] == "" ? "" : row[2], dir = row[0] == "" ? "." : row[1];
        EXPECT_STREQ(name.c_str(), vex_path_basename(row[0].c_str()));
        EXPECT_EQ(static_cast<ssize_t>(dir.size()), vex_path_dirname(row[0].c_str(), out, dir.size() + 1)) << row[0];
        EXPECT_EQ(dir, out);
        EXPECT_FAILS(ENOBUFS, -1, vex_path_dirname(row[0].c_str(), out, dir.size()));
    }
    for (const auto &row : table(3, "a|b|a/b|a/|/b|a/b||b|b|/|b|/b|a||a/|")) {
        EXPECT_EQ(static_cast<ssize_t>(row[2].size()), vex_path_join(out, sizeof out, row[0].c_str(), row[1].c_str()));
        EXPECT_EQ(row[2], out);
    }
    for (const auto &row : table(3, "/a/b|/a|1|/ab|/a|0|\\a\\b|/a/|1|/a|/a|1|/|/a|0|/x|/|1|x|/|0|x|.|1|/x||0|"))
        EXPECT_EQ(std::stoi(row[2]), vex_path_is_below(row[0].c_str(), row[1].c_str())) << row[0];
    EXPECT_EQ(0, vex_path_compare("a\\b/", "a//b"));
    EXPECT_LT(vex_path_compare("a/b", "a/c"), 0);
}

TEST(Path, ResolvesWhatExistsAndKeepsWhatDoesNot) {
    TempDir dir;
    ASSERT_EQ(0, mkdir((dir / "real").c_str(), 0755));
    ASSERT_EQ(0, symlink("real", (dir / "link").c_str()));
    ASSERT_EQ(0, symlink("nowhere", (dir / "dangling").c_str()));
    char root[PATH_MAX], out[PATH_MAX];
    ASSERT_NE(nullptr, realpath(dir.path().c_str(), root));
    for (const auto &row : table(2,
             "link/../real|/real|link/new/file|/real/new/file|real/new/.|/real/new|"
             "dangling|ENOENT|new/../x|ENOENT|link/x/..|ENOENT|")) {
        const ssize_t length = vex_path_resolve((dir / row[0]).c_str(), out, sizeof out);
        EXPECT_EQ(row[1][0] == '/' ? root + row[1] : row[1], length < 0 ? strerrorname_np(errno) : out) << row[0];
    }
    EXPECT_EQ(-1, vex_path_resolve("", out, sizeof out));
    EXPECT_FAILS(ENOBUFS, -1, vex_path_resolve("/", out, 1));
    struct stat status {};
    EXPECT_FAILS(ENOENT, -1, vex_stat("", &status));
    EXPECT_FAILS(EINVAL, -1, vex_access(nullptr, R_OK));
}

TEST(WideFiles, ReachEveryNameWhateverTheLocale) {
    TempDir dir;
    const std::wstring root(dir.path().begin(), dir.path().end()),
        odd = root + L"/\x20ac\xdcff";  // a byte that is none
    const auto at = [&](const std::wstring &name) { return root + L"/" + name; };
    wchar_t text[PATH_MAX];
    struct stat status {};
    const vex::UniqueFd fd(wcscreat(odd.c_str(), 0600));
    EXPECT_NE(0, fcntl(fd.get(), F_GETFD) & FD_CLOEXEC);
    EXPECT_EQ(0, access((dir / "\xe2\x82\xac\xff").c_str(), F_OK));
    EXPECT_EQ(
        0, wcschmod(odd.c_str(), 0640) | wcschown(odd.c_str(), geteuid(), getegid()) | wcstruncate(odd.c_str(), 7));
    EXPECT_EQ(7, wcsaccess(odd.c_str(), R_OK) + wcsstat(odd.c_str(), &status) + status.st_size);
    EXPECT_EQ(0, wcsmkdir(at(L"d").c_str(), 0755) | wcslink(odd.c_str(), at(L"d/hard").c_str()) |
                     wcssymlink(L"\x20ac", at(L"soft").c_str()) | wcslstat(at(L"soft").c_str(), &status));
    EXPECT_TRUE(S_ISLNK(status.st_mode));
    EXPECT_EQ(1, wcsreadlink(at(L"soft").c_str(), text, 2));
    EXPECT_EQ(std::wstring(L"\x20ac"), text);
    EXPECT_EQ(-1, wcsreadlink(at(L"soft").c_str(), text, 1));
    WDIR *const stream = wcsopendir(root.c_str());
    EXPECT_LE(0, wcsdirfd(stream));
    std::set<std::wstring> names;
    wdirent entry, *result = nullptr;
    while (wcsreaddir_r(stream, &entry, &result) == 0 && result != nullptr) names.insert(entry.d_name);
    EXPECT_EQ((std::set<std::wstring>{L".", L"..", L"\x20ac\xdcff", L"d", L"soft"}), names);
    EXPECT_EQ(0, wcsclosedir(stream));
    EXPECT_EQ(0, wcsrename(odd.c_str(), at(L"new").c_str()) | wcsunlink(at(L"new").c_str()) |
                     wcsremove(at(L"d/hard").c_str()) | wcsrmdir(at(L"d").c_str()));
    EXPECT_NE(nullptr, vex::UniqueFile(wcsfopen(at(L"f").c_str(), "w")).get());
    const vex::UniqueFd back(::open(".", O_RDONLY | O_DIRECTORY));
    EXPECT_EQ(0, wcschdir(root.c_str()));
    EXPECT_EQ(text, wcsgetcwd(text, PATH_MAX));
    EXPECT_EQ(root, text);
    EXPECT_EQ(0, fchdir(back.get()));
    EXPECT_FAILS(ERANGE, nullptr, wcsgetcwd(text, 2));
    EXPECT_FAILS(ENAMETOOLONG, -1, wcsaccess(std::wstring(PATH_MAX, L'x').c_str(), F_OK));
    EXPECT_FAILS(EILSEQ, -1, wcsopen(L"\xd800", O_RDONLY, 0));
    EXPECT_FAILS(EINVAL, nullptr, wcsopendir(nullptr));
}
