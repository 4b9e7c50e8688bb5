#include <fts.h>

#include "support/test.h"

namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

std::string narrow(const char *text) { return text; }
std::string narrow(const wchar_t *text) {
    char bytes[PATH_MAX * 4];
    return vex_wcs_to_utf8(text, bytes, sizeof bytes) < 0 ? "too long" : bytes;
}
template <typename Entry>
std::string nameOf(const Entry *entry) {
    if constexpr (std::is_same_v<Entry, FTSENT>) return entry->fts_name;
    else return narrow(entry->name);
}
template <typename Entry>
int byName(const Entry **a, const Entry **b) {
    return nameOf(*a).compare(nameOf(*b));
}

// Both forms of the walker, and fts(3), under the same names.
template <typename E, auto Open, auto Next, auto Children, auto Instruct, auto Close>
struct Form {
    using Entry = E;
    static constexpr auto open = Open;
    static constexpr auto next = Next;
    static constexpr auto children = Children;
    static constexpr auto close = Close;
    static void instruct(decltype(Open(nullptr, 0, nullptr, nullptr, nullptr, 0)), E *entry, unsigned to) {
        Instruct(entry, to);
    }
};
struct Narrow : Form<DirEntry, DirOpenExA, DirGetNextA, DirGetChildrenA, DirSetFlagsA, DirCloseA> {
    static std::string text(const std::string &path) { return path; }
};
struct Wide : Form<DirEntryW, DirOpenExW, DirGetNextW, DirGetChildrenW, DirSetFlagsW, DirCloseW> {
    static std::wstring text(const std::string &path) {
        wchar_t wide[PATH_MAX];
        return vex_utf8_to_wcs(path.c_str(), wide, PATH_MAX) < 0 ? L"" : wide;
    }
};
struct Fts : Narrow {
    using Entry = FTSENT;
    static FTS *open(
        const char *path, uint32_t options, int (*order)(const FTSENT **, const FTSENT **), void *, void *, int) {
        char *roots[] = {const_cast<char *>(path), nullptr};
        return fts_open(roots, static_cast<int>(options), order);
    }
    static constexpr auto next = fts_read;
    static constexpr auto close = fts_close;
    static FTSENT *children(FTS *walk, uint32_t options) { return fts_children(walk, static_cast<int>(options)); }
    static void instruct(FTS *walk, FTSENT *entry, unsigned to) { (void)fts_set(walk, entry, static_cast<int>(to)); }
};
DirEntry plain(const FTSENT &e, std::string *path, std::string *access) {
    *path = e.fts_path, *access = e.fts_accpath;
    DirEntry same{};
    same.link = reinterpret_cast<DirEntry *>(e.fts_link), same.statp = e.fts_statp, same.errno_value = e.fts_errno;
    same.level = static_cast<int16_t>(e.fts_level), same.info = e.fts_info, same.flags = e.fts_flags;
    return same;
}
template <typename Entry>
Entry plain(const Entry &e, std::string *path, std::string *access) {
    return *path = narrow(e.path), *access = narrow(e.accpath), e;
}

/// All that a walk returns, with what is found under the access path and in the status. With a seed it is given
/// instructions on the way, and asked for children.
template <typename Side>
Lines walked(const std::string &root, uint32_t options, bool sorted, unsigned long seed) {
    auto *const walk = Side::open(
        Side::text(root).c_str(), options, sorted ? byName<typename Side::Entry> : nullptr, nullptr, nullptr, 0);
    std::mt19937 random(static_cast<unsigned>(seed));
    Lines lines;
    while (auto *const entry = Side::next(walk)) {
        std::string path, access;
        const auto e = plain(*entry, &path, &access);
        struct stat seen = {};
        (void)lstat(access.c_str(), &seen);
        lines.push_back(std::to_string(e.level) + ' ' + std::to_string(e.info) + ' ' + std::to_string(e.errno_value) +
                        ' ' + path + ' ' + nameOf(entry) + ' ' + std::to_string(seen.st_ino));
        if ((options & DDS_NOSTAT) == 0 && e.info != DDS_NSOK && e.info != DDS_NS)
            lines.back() += ' ' + std::to_string(e.statp->st_ino);
        const unsigned choice = seed == 0 ? 99 : static_cast<unsigned>(random() % 16);
        // not compared, as fts(3) gets lost: a second descent, children of a directory behind a followed link, names
        // only among other lists, and links to be followed where the working directory stays
        if ((choice < 4 && e.info != DDS_DP) || choice == 5) Side::instruct(walk, entry, choice == 5 ? 2U : choice + 1);
        if ((choice != 6 && choice != 7) || (e.flags & DDS_SYMFOLLOW) != 0) continue;
        auto *child = Side::children(walk, seed % 2 == 0 ? 0 : DDS_NAMEONLY);
        for (unsigned i = 0; child != nullptr; ++i) {
            const auto next = plain(*child, &path, &access).link;
            if (i == 1 && seed % 2 == 0)
                Side::instruct(walk, child, (options & (DDS_NOCHDIR | DDS_LOGICAL)) != 0 ? DDS_SKIP : DDS_FOLLOW);
            lines.back() += ' ' + nameOf(child);
            child = reinterpret_cast<decltype(child)>(next);
        }
    }
    lines.push_back("end " + std::to_string(errno) + ' ' + std::to_string(Side::close(walk)));
    return lines;
}

/// Directories, files, links of every fate, a pipe, and names that are no text.
void plant(const std::string &root, std::mt19937 &random) {
    Lines directories{root};
    for (int i = 0; i < 40; ++i) {
        const std::string &parent = directories[random() % directories.size()];
        const std::string path =
            parent + "/" + std::string(1 + random() % 9, 'a') + "\xff\xe2\x82\xac" + std::to_string(i);
        const auto kind = random() % 8;
        ASSERT_EQ(0, kind == 0 ? mkfifo(path.c_str(), 0600) : 0);
        if (kind == 1) fs::create_symlink(i % 2 != 0 ? "missing" : path, path);
        if (kind == 2) fs::create_symlink(i % 2 != 0 ? ".." : directories.back(), path);
        // a file in each directory: fts(3) cannot leave an empty link target
        if (kind > 2 && kind < 6) fs::create_directory(path), directories.push_back(path);
        if (kind > 2) writeFile(kind < 6 ? path + "/f" : path, "");
    }
    fs::create_directory(root + "/" + std::string(251, 'n') + "\xf0\x9f\x98\x80");
}

TEST(Walk, ReturnsWhatFtsReturnsUnderEveryOption) {
    std::mt19937 random(static_cast<unsigned>(testSeed()));
    const LogCapture log;
    const std::string start = fs::current_path();
    for (int tree = 0; tree < 3; ++tree) {
        const TempDir dir;
        fs::create_directory(dir / "t");
        fs::create_symlink("t", dir / "l");
        plant(dir / "t", random);
        fs::current_path(dir.path());
        for (uint32_t bits = 0; bits < 0x80; ++bits) {
            if ((bits & DDS_LOGICAL) != 0) continue;
            const uint32_t options = bits | ((bits & DDS_PHYSICAL) == 0 ? DDS_LOGICAL : 0);
            // fts(3) forgets COMFOLLOW when it is told to look at a root again
            const bool instructed = bits % 4 != 0 && (bits % 3 != 0 || (bits & DDS_COMFOLLOW) == 0);
            const unsigned long seed = instructed ? random() : 0;
            const std::string root = bits % 3 == 0 ? "l" : bits % 3 == 1 ? "./t" : dir / "t";
            SCOPED_TRACE(testing::Message() << options << " " << root << " " << seed);
            const Lines expected = walked<Fts>(root, options, bits % 5 != 0, seed);
            ASSERT_EQ(expected, walked<Narrow>(root, options, bits % 5 != 0, seed));
            ASSERT_EQ(expected, walked<Wide>(root, options, bits % 5 != 0, seed));
            ASSERT_EQ(dir.path(), fs::current_path());
        }
        fs::current_path(start);
    }
}

/// Directories d with a file and e, empty, under t; the test stands above it.
struct WalkFailures : FolderTest {
    WalkFailures() { fs::current_path(dir.path()), plantAnew(); }
    ~WalkFailures() override { fs::current_path(start); }
    void plantAnew() const {
        for (const auto &name : dir.list()) fs::remove_all(dir / name);
        for (const char *name : {"t/d", "t/e", "outside"}) fs::create_directories(dir / name);
        for (const char *name : {"t/d/f", "outside/secret"}) writeFile(dir / name, "");
    }
    const fs::path start = fs::current_path();
};

int marked;  // entries that the callbacks below hold
long admitted, vetoed;
template <typename Entry, typename Char>
bool mark(Entry *entry, const Char *path) {
    EXPECT_NE(Char{}, path[0]);
    return entry->user_data = &marked, ++marked, ++admitted != vetoed;
}
template <typename Entry>
void unmark(Entry *entry) {
    marked -= entry->user_data == &marked ? 1 : 100;
}

/// Kinds and names of a whole walk, its end, and what closing gave; with children asked for and links followed.
template <typename Side>
std::string visits(bool busy) {
    marked = 0, admitted = 0;
    const int descriptors = openDescriptors();
    auto *const walk = Side::open(Side::text("t").c_str(), DDS_PHYSICAL, byName<typename Side::Entry>, mark, unmark, 0);
    std::string seen = walk == nullptr ? "none " + std::to_string(errno) : "";
    while (auto *const entry = walk != nullptr ? Side::next(walk) : nullptr) {
        seen += std::to_string(entry->info) + ' ' + narrow(entry->name) + ',';
        if (busy) (void)Side::children(walk, entry->level == 1 ? DDS_NAMEONLY : 0);
        if (busy) Side::instruct(walk, entry, entry->info == DDS_SL ? DDS_FOLLOW : DDS_NOINSTR);
    }
    if (walk != nullptr) seen += std::to_string(errno) + ',' + (Side::next(walk) == nullptr ? "" : "?");
    if (walk != nullptr) seen += std::to_string(Side::close(walk));
    EXPECT_TRUE(marked == 0 && descriptors == openDescriptors()) << marked << " marked entries were not released";
    return seen;
}

TEST_F(WalkFailures, AreToldOnceAndEndTheWalkOnlyWhereItCannotGoOn) {
    // call, which, errno, log, visits; * is the form's letter, $ a walk that was stopped in a directory, # all of it
    for (auto &row : table(5,
             "nothing|1|0||#|open|1|24||#|"
             "open|2|13|13 dirBuild: could not open directory|1 t,4 t,6 t,0,0|"
             "lstat|1|5|5 fastStat: stat failed for path: t|10 t,0,0|"
             "fstatat|3|2|2 fastStat: stat failed for path: f|1 t,1 d,10 f,6 d,1 e,6 e,6 t,0,0|"
             "fchdir|1|5|DirGetNext*: FCHDIR failed, errno=5, set dds_cur to NULL|5,0|"
             "fchdir|2|13|13 dirBuild (1269): could not change directories|1 t,10 d,10 e,7 t,0,0|"
             "fchdir|5|5|DirGetNext*: FCHDIR failed, errno=5, dds_cur=(nil).|1 t,1 d,8 f,6 d,1 e,6 e,5,0|"
             "fchdir|6|5|5 DirClose*: failed to change directories|1 t,1 d,8 f,6 d,1 e,6 e,6 t,0,-1|"
             "chdir|1|5|DirGetNext*: CHDIR failed, errno=5, dds_cur=(nil).|1 t,1 d,8 f,5,0|"
             "chdir|2|5|5 dirBuild (1465): could not change directories$|1 t,1 d,8 f,6 d,1 e,5,0|"
             "stat|1|5|DirGetNext*: CHDIR failed, errno=5, dds_cur=(nil).|1 t,1 d,8 f,5,0|"
             "getdents64|1|5|5 dirBuild: could not read directory$|1 t,5,0|"
             "close|1|5|5 dirBuild: could not close directory$|1 t,5,0|"
             "malloc|1|12|12 DirOpenEx*: could not allocate memory|none 12|"
             "malloc|2|12|12 dirAlloc: could not allocate memory\n12 DirOpenEx*: could not allocate memory|none 12|"
             "malloc|5|12|12 dirAlloc: could not allocate memory\n12 dirBuild: could not allocate memory$|1 t,12,0|"
             "realloc|1|12|12 pathAlloc: failed to reallocate memory|none 12|"
             "realloc|2|12|12 dirSort: could not reallocate memory\n12 dirBuild: could not sort directories$|1 t,12,0|"
             "veto|2|0|12 DirOpenEx*: could not allocate memory|none 12|"
             "veto|4|0|12 dirBuild: could not allocate memory$|1 t,12,0|")) {
        if (row[3].back() == '$')
            row[3].replace(row[3].size() - 1, 1, "\nDirGetNext*: DDS_STOP 2, set dds_cur to NULL");
        if (row[4] == "#") row[4] = "1 t,1 d,8 f,6 d,1 e,6 e,6 t,0,0";
        for (const char form : {'A', 'W'}) {
            SCOPED_TRACE(row[0] + row[1] + form);
            vetoed = row[0] == "veto" ? std::stol(row[1]) : -1;
            const FaultScope fault(row[0].c_str(), static_cast<unsigned>(std::stoul(row[1])), std::stoi(row[2]));
            EXPECT_EQ(row[4], form == 'A' ? visits<Narrow>(false) : visits<Wide>(false));
            std::string expected = row[3];
            for (char &c : expected) c = c == '*' ? form : c;
            EXPECT_EQ(expected, log.take());
            EXPECT_EQ(dir.path(), fs::current_path());
        }
    }
}

TEST_F(WalkFailures, LeaveNothingBehindWhicheverCallFails) {
    vetoed = -1;
    fs::create_directory_symlink("../d", dir / "t/e/l");
    const Lines calls{"open", "fstat", "stat", "fstatat", "getdents64", "chdir", "fchdir", "malloc", "realloc"};
    EXPECT_LT(60u, forEachFault(calls, EIO, [&](const FaultScope &) {
        const std::string seen = visits<Narrow>(true);
        EXPECT_TRUE(fs::current_path() == dir.path() || seen.ends_with("-1")) << seen;
        fs::current_path(dir.path());
    }));
}

TEST_F(WalkFailures, WrongArgumentsAreRefused) {
    fs::create_symlink("gone", dir / "dangling");
    DirStream *const walk = DirOpenA("t", DDS_WHITEOUT | DDS_RESERVED, nullptr, 0);
    DirEntry *const root = DirGetChildrenA(walk, DDS_NAMEONLY);
    ASSERT_EQ(root, DirGetNextA(walk));
    EXPECT_EQ(1, DirSetFlagsA(root, DDS_SKIP));
    const auto open = [](const char *name, uint32_t options) { return DirOpenA(name, options, nullptr, 0); };
    EXPECT_FAILS_WITH("2 DirOpenExA: invalid NULL parameter", nullptr, open("", 0x800));
    EXPECT_FAILS_LOGGING("", ENOENT, nullptr, open("missing", 0x800));
    EXPECT_FAILS_LOGGING("", ENOENT, nullptr, open("dangling", DDS_PHYSICAL));
    EXPECT_FAILS_WITH("20 DirOpenExA: cannot access path.", nullptr, open("t/d/f/x", 0x800));
    EXPECT_FAILS_WITH("22 DirOpenExA: invalid options", nullptr, open("t", 0x800));
    EXPECT_FAILS_WITH("22 DirGetNextA: invalid NULL parameter", nullptr, DirGetNextA(nullptr));
    EXPECT_FAILS_WITH("22 DirGetChildrenA: no valid flag settings", nullptr, DirGetChildrenA(walk, DDS_STOP));
    EXPECT_FAILS_WITH("22 DirSetFlagsA: no valid flag settings", 0, DirSetFlagsA(root, 5));
    EXPECT_FAILS_WITH("22 DirCloseW: invalid NULL parameter", 0, DirCloseW(nullptr));
    EXPECT_EQ(DDS_SKIP, root->instr);
    root->errno_value = 4095;
    EXPECT_STREQ(strerror(DirGetErrnoA(root)), DirGetStrerrorA(root));
    EXPECT_EQ(0, DirCloseA(walk));
}

TEST_F(WalkFailures, NobodyLeadsTheWalkOutOfItsTree) {
    for (const auto &row : table(2,
             "replaced|4d,6d,1e,6e,6t,end 0|known|8f,7d,1e,6e,6t,end 0|"
             "removed|4d,6d,1e,6e,6t,end 0|moved|8f,end 2|")) {
        SCOPED_TRACE(row[0]);
        plantAnew();
        DirStreamW *const walk = DirOpenW(L"t", DDS_PHYSICAL, byName<DirEntryW>, 0);
        ASSERT_TRUE(DirGetNextW(walk) != nullptr && DirGetNextW(walk)->level == 1);
        EXPECT_TRUE(row[0] != "known" || DirGetChildrenW(walk, 0) != nullptr);
        if (row[0] == "removed") fs::remove_all("d");
        std::string seen = row[0] == "moved" ? std::to_string(DirGetNextW(walk)->info) + "f," : "";
        if (row[0] != "removed") fs::rename(dir / "t/d", dir / "outside/d");
        if (row[0] == "replaced" || row[0] == "known") fs::create_directory_symlink("../outside", "d");
        while (const auto *const entry = DirGetNextW(walk))
            seen += std::to_string(entry->info) + narrow(entry->name) + ',';
        EXPECT_EQ(row[1], seen + "end " + std::to_string(errno));
        EXPECT_TRUE(dir.path() == fs::current_path() && DirCloseW(walk) == 0);
    }
}

TEST_F(WalkFailures, AFailureInGetChildrenEndsTheWalkAtTheNextStep) {
    const auto begin = std::chrono::steady_clock::now();
    DirStream *const walk = DirOpenA("t", DDS_NOCHDIR, nullptr, 40);
    ASSERT_NE(nullptr, DirGetNextA(walk));
    ASSERT_NE(nullptr, DirGetChildrenA(walk, 0));
    EXPECT_LE(std::chrono::milliseconds(3 * 40), std::chrono::steady_clock::now() - begin) << "a delay for each status";
    const FaultScope fault("getdents64", 1, EIO);
    EXPECT_FAILS_WITH("5 dirBuild: could not read directory", nullptr, DirGetChildrenA(walk, 0));
    EXPECT_FAILS_LOGGING("DirGetNextA: DDS_STOP 1, set dds_cur to NULL", EIO, nullptr, DirGetNextA(walk));
    EXPECT_EQ(0, DirCloseA(walk));
}

template <typename Side>
void walkDeep(int depth, size_t length) {
    auto *walk = Side::open(Side::text("t").c_str(), DDS_PHYSICAL, nullptr, nullptr, nullptr, 0);
    int entries = 0;
    while (const auto *const entry = Side::next(walk)) {
        if (++entries != depth + 1) continue;
        EXPECT_EQ(1 + static_cast<size_t>(depth) * (length + 1), std::basic_string_view(entry->path).size());
        EXPECT_EQ(depth, entry->level);
    }
    EXPECT_EQ(2 * (depth + 1), errno == 0 ? entries : 0);
    EXPECT_EQ(0, Side::close(walk));
    const LogCapture log;
    walk = Side::open(Side::text("t").c_str(), DDS_NOCHDIR, nullptr, nullptr, nullptr, 0);
    for (const auto *entry = Side::next(walk); entry != nullptr && entry->info != DDS_DP; entry = Side::next(walk))
        EXPECT_EQ(entry->level < 21 ? 0 : ENAMETOOLONG, entry->errno_value)
            << "where paths are used they end at PATH_MAX";
    EXPECT_EQ(0, Side::close(walk));
    EXPECT_EQ(1u, log.lines().size());
}

TEST(Walk, GoesDeeperThanPathsCan) {
    if (access("/dev/shm", W_OK) == 0) (void)setenv("TMPDIR", "/dev/shm", 1);  // a disk takes its time
    const TempDir dir;
    (void)unsetenv("TMPDIR");
    const std::string start = fs::current_path(), name(200, 'x');
    constexpr int kDepth = 10'000;
    fs::create_directory(dir / "t");
    fs::current_path(dir / "t");
    for (int i = 0; i < kDepth; ++i) ASSERT_TRUE(mkdir(name.c_str(), 0755) == 0 && chdir(name.c_str()) == 0);
    fs::current_path(dir.path());
    walkDeep<Narrow>(kDepth, name.size());
    walkDeep<Wide>(kDepth, name.size());
    EXPECT_EQ(dir.path(), fs::current_path());
    EXPECT_EQ(0, system("rm -r t"));
    fs::current_path(start);
}

}  // namespace
