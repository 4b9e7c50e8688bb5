// Getters, savers, comments and deletion.
#include <locale.h>

#include "support/test.h"

namespace {

constexpr const char *kPath = "__default__";

struct IniValues : FolderTest {
    static std::string text(const char *key) {
        char buf[512];
        return InifileGetValueA("s", key, buf, sizeof buf, nullptr, kPath) > 0 ? buf : "(none)";
    }
};

TEST_F(IniValues, AGetterThatUsedItsDefaultMakesTheNextOneFindIt) {
    char buf[8];
    EXPECT_EQ(-5, InifileGetValueA("s", "k", buf, sizeof buf, "first", kPath));
    EXPECT_EQ(6, InifileGetValueA("S", "K", buf, 3, "second", kPath)) << "the stored length";
    EXPECT_STREQ("fi", buf);
    EXPECT_EQ(-7, InifileGetValueA("s", "long", buf, sizeof buf, "much longer", kPath)) << "copied";
    EXPECT_EQ(12, InifileGetValueA("s", "long", buf, sizeof buf, "", kPath));
    EXPECT_EQ(0, InifileGetValueA("s", "bare", buf, sizeof buf, nullptr, kPath));
    EXPECT_EQ(-1, InifileValueExistsA("s", "bare", kPath)) << "no value counts as missing";
    EXPECT_EQ(0, InifileValueExistsA("s", "k", kPath));
    std::string names(10, 'x');
    EXPECT_EQ(12, InifileGetValueA("s", nullptr, names.data(), 10, nullptr, kPath));
    EXPECT_EQ(std::string("k\0long\0\0\0\0", 10), names) << "bare does not fit whole";
}

/// What a typed getter makes of the stored text with default 9: the result when it failed, errno,
/// the out value.
template <typename T, int (*get)(const char *, const char *, T *, T, const char *)>
std::string read() {
    std::ostringstream out;
    T value{};
    const int result = get("s", "n", &value, static_cast<T>(9), kPath);
    if (result <= 0) out << result << " " << strerrorname_np(errno) << " ";
    out << value;
    errno = 0;
    EXPECT_GE(0, get("s", "n", nullptr, T{}, kPath));
    EXPECT_EQ(EINVAL, errno);
    return out.str();
}

TEST_F(IniValues, TypedGettersConvertTheWholeTextOrKeepTheDefaultInEveryLocale) {
    setlocale(LC_ALL, "de_DE.UTF-8");  // where there is one
    const auto expect = [](auto read, const char *rows) {
        for (const auto &row : table(2, rows)) {
            ASSERT_EQ(0, InifileSaveValueA("s", "n", row[0].c_str(), kPath));
            EXPECT_EQ(row[1], read()) << row[0];
        }
    };
    expect(read<int, InifileGetIntegerA>,
        "-12|-12|0x10|0 EINVAL 9|1 2|0 EINVAL 9|2147483647|2147483647|2147483648|0 ERANGE 9|");
    expect(read<unsigned, InifileGetUIntegerA>, "-1|0 ERANGE 9|");
    expect(read<short, InifileGetShortA>, "70000|0 ERANGE 9|");
    expect(read<unsigned short, InifileGetUShortA>, "65536|0 ERANGE 9|");
    expect(read<long long, InifileGetLongLongA>, "9223372036854775808|0 ERANGE 9|");
    expect(read<unsigned long long, InifileGetULongLongA>, "-1|18446744073709551615|");
    expect(
        read<uint64_t, InifileGetSizeA>, "2KiB|2048|2 KiB|-1 EINVAL 9|KiB|-1 EINVAL 9|-1|-1 EINVAL 9|1Kx|-1 EINVAL 9|");
    expect(read<double, InifileGetPercentageA>, "12.5%|12.5|0.5%|-1 ERANGE 9|nan%|-1 ERANGE 9|50|-1 EINVAL 9|");
    expect(read<float, InifileGetFloatA>,
        "3.4028234e38|3.40282e+38|+2e3|2000|+-5|0 EINVAL 9|1,5|0 EINVAL 9|1e99|0 ERANGE 9|");
    expect(read<bool, InifileGetBooleanA>, "Yes|1|on|0|");
    // what the savers and defaults write
    InifileSaveFloatA("s", "float", -0.5F, kPath);
    InifileSaveBooleanA("s", "b", true, kPath);
    InifileSaveSizeA("s", "size", UINT64_MAX, kPath);
    double percentage = 0;
    float fraction = 0;
    EXPECT_EQ(-3, InifileGetPercentageA("s", "percent", &percentage, 50, kPath));
    EXPECT_EQ(-34, InifileGetFloatA("s", "f", &fraction, 0.25F, kPath));
    EXPECT_EQ("-0.5" + std::string(47, '0') + " 1 18446744073709551615 50% 0.25" + std::string(30, '0'),
        text("float") + " " + text("b") + " " + text("size") + " " + text("percent") + " " + text("f"));
    char native[32];
    EXPECT_EQ(-8, InifileGetPathA("s", "p", native, sizeof native, "\\var\\\\x/", kPath));
    EXPECT_STREQ("/var/x", native);
    setlocale(LC_ALL, "C");
}

TEST_F(IniValues, RefusesNamesThatCouldNotBeReadBack) {
    char buf[8];
    for (const char *key : {"", "a=b", "a\nb", "[x", ";x", "#x", " x", "x ", "\xc3\xa4"}) {
        EXPECT_FAILS_WITH(std::string("22 InifileSaveValueA: invalid section or key [s] ") + key, -1,
            InifileSaveValueA("s", key, "v", kPath));
        EXPECT_EQ(-1, InifileGetValueA("s", key, buf, sizeof buf, "d", kPath)) << "unstored";
    }
    EXPECT_FAILS_WITH(
        "22 InifileSaveValueA: invalid section or key [a]b] k", -1, InifileSaveValueA("a]b", "k", "v", kPath));
    EXPECT_FAILS_WITH(
        "22 inifileGetNthValue: invalid NULL parameter or buflen", 0, InifileGetValueA("s", "k", buf, 0, "", kPath));
}

TEST_F(IniValues, CommentsBelongToTheFileASectionOrAKey) {
    char buf[64];
    InifileSaveValueA("s", "k", "1", kPath);
    EXPECT_EQ(0, InifileSaveCommentA(nullptr, nullptr, "head", kPath));
    EXPECT_EQ(0, InifileSaveCommentA("s", nullptr, "# one\r\ntwo\n\n", kPath));
    EXPECT_EQ(0, InifileSaveCommentA("s", "k", ";x", kPath));
    EXPECT_FAILS(ENOENT, -1, InifileSaveCommentA("s", "absent", "x", kPath));
    EXPECT_EQ(14, InifileGetCommentA("s", nullptr, buf, sizeof buf, kPath));
    EXPECT_STREQ("# one\n; two\n\n", buf);
    EXPECT_EQ(0, InifileSaveAsA((dir / "x").c_str(), kPath));
    EXPECT_EQ("; head\n# one\n; two\n\n[s]\n;x\nk=1\n\n", readFile(dir / "x"));
    EXPECT_EQ(0, InifileSaveCommentA("s", "k", nullptr, kPath));
    EXPECT_EQ(0, InifileGetCommentA("s", "k", buf, sizeof buf, kPath));
}

TEST_F(IniValues, ChecksPathsAndReportsBadValuesInOneBlock) {
    const std::string file = dir / "file", missing = dir / "missing";
    writeFile(file, "");
    ASSERT_EQ(0, chmod(file.c_str(), 0400));
    EXPECT_EQ(0, InifileCheckPathA("f", "s", "k", (dir.path() + "//").c_str(), S_IFDIR));
    const auto check = [&](const std::string &value, int kind) {
        log.clear();
        EXPECT_EQ(-1, InifileCheckPathA("f", "s", nullptr, value.c_str(), kind));
        return std::string(strerrorname_np(errno)) + log.lines().at(0).substr(12 + value.size());
    };
    const std::string end = "\nFile     : f\nSection  : s\nEntry    : (none)\nReason   : ";
    EXPECT_EQ("EINVAL" + end + "Expected a non-empty value.", check("", S_IFDIR));
    EXPECT_EQ("ENOENT" + end + "not a directory (No such file or directory)", check(missing, S_IFDIR));
    EXPECT_EQ("ENOTDIR" + end + "not a directory (" + file + ")", check(file, S_IFDIR));
    EXPECT_EQ("EISDIR" + end + "not a file (" + dir.path() + ")", check(dir.path(), S_IFREG));
    EXPECT_EQ("EACCES" + end + "incorrect permissions. Expected: 0600, actual: 0400", check(file, S_IFREG));
    InifileValueNoticeA("f", "s", nullptr, -4, "why");
    EXPECT_THAT(log.lines(VEX_LOG_NOTICE), ElementsAre("\nBadValue : -4" + end + "why"));
}

TEST_F(IniValues, ManyThreadsShareOneStore) {
    const auto get = [&](const std::string &key, int standard) {
        return InifileGetIntegerA("s", key.c_str(), &standard, standard, path.c_str()), standard;
    };
    inThreads(3, [&](int thread) {
        const std::string own{"abc"[thread]};
        for (int i = 0; i < 200; ++i) {
            EXPECT_EQ(i, get("k" + std::to_string(i), i));
            InifileSaveIntegerA("s", own.c_str(), i, path.c_str());
            EXPECT_EQ(0, i % 50 == 0 ? InifileSaveA(path.c_str()) : 0);
        }
    });
    EXPECT_EQ(3 * 199, get("a", 0) + get("b", 0) + get("c", 0));
}

/// The plainest store that keeps the same promises: one list of keys in file order, one set of
/// sections.
struct Model {
    struct Key {
        std::string section, name;
        std::vector<std::string> values;  // newest first; none when deleted
    };
    std::vector<Key> keys;
    std::set<std::string> sections;

    static bool same(const std::string &a, const std::string &b) { return strcasecmp(a.c_str(), b.c_str()) == 0; }
    Key &at(const std::string &section, const std::string &name) {
        for (Key &key : keys)
            if (same(key.section, section) && same(key.name, name)) return key;
        return keys.emplace_back(Key{section, name, {}});
    }
    void set(Key &key, const std::string &value) {
        sections.insert(key.section);
        key.values.resize(std::max<size_t>(key.values.size(), 1));
        key.values[0] = value;
    }
    bool erase(const std::string &section, const std::string *name) {
        bool any = name == nullptr && sections.erase(section) > 0;
        for (Key &key : keys) {
            if (key.section != section || (name != nullptr && !same(key.name, *name))) continue;
            any = any || !key.values.empty();
            key.values.clear();
        }
        return any;
    }
    std::string list(const std::string &section) const {
        std::string out;
        for (const Key &key : keys)
            if (key.section == section && !key.values.empty()) out += key.name + '\0';
        return out;
    }
};

TEST_F(IniValues, RandomOperationsAgreeWithAPlainModel) {
    std::mt19937 random(static_cast<unsigned>(testSeed()));
    const auto pick = [&](unsigned n) { return static_cast<unsigned>(random() % n); };
    const auto anyName = [&] {
        std::string name = "name-" + std::to_string(pick(40));
        for (char &c : name) c = pick(4) == 0 ? static_cast<char>(toupper(c)) : c;
        return name;
    };
    Model model;
    std::string text;
    for (int i = 0; i < 300; ++i) {
        const std::string section = std::to_string(pick(6)), name = anyName();
        text += "[" + section + "]\n" + name + "=" + std::to_string(i) + "\n";
        Model::Key &key = model.at(section, name);
        key.values.insert(key.values.begin(), std::to_string(i));
        key.name = name;  // the newest spelling shows
        model.sections.insert(section);
    }
    writeFile(path, text);
    char buf[4096];
    for (int i = 0; i < 20000; ++i) {
        const std::string section = std::to_string(pick(6)), name = anyName(),
                          value = pick(5) == 0 ? "" : std::to_string(random());
        const char *s = section.c_str(), *k = name.c_str(), *p = path.c_str();
        const unsigned action = pick(800);
        if (action < 100) {
            ASSERT_EQ(0, InifileSaveValueA(s, k, value.c_str(), p));
            model.set(model.at(section, name), value);
        } else if (action < 200) {
            const bool whole = pick(30) == 0;
            ASSERT_EQ(
                model.erase(section, whole ? nullptr : &name) ? 0 : -1, InifileDeleteValueA(s, whole ? nullptr : k, p));
        } else if (action == 200) {
            ASSERT_EQ(0, InifileSaveA(p));
            ASSERT_EQ(0, InifileReleaseA(p));
            std::erase_if(model.keys, [](const auto &key) { return key.values.empty(); });
        } else if (action < 300) {
            const int needed = InifileGetValueA(s, nullptr, buf, sizeof buf, nullptr, p);
            ASSERT_EQ(model.list(section), std::string(buf, static_cast<size_t>(needed)));
        } else {
            const size_t n = pick(3);
            Model::Key &key = model.at(section, name);
            const bool hit = n < key.values.size() && !key.values[n].empty();
            const std::string expected = hit ? key.values[n] : value;
            const int length = static_cast<int>(expected.size());
            ASSERT_EQ(hit ? length + 1 : -length,
                InifileGetNthValueA(static_cast<int>(n), s, k, buf, sizeof buf, value.c_str(), p));
            ASSERT_EQ(expected, buf);
            if (!hit && (key.values.empty() || key.values[0].empty())) model.set(key, value);
        }
    }
}

}  // namespace
