// Getters, savers, comments and deletion, on the store that has no file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <locale.h>

#include <climits>
#include <map>
#include <random>
#include <thread>

#include <vex/inifile.h>

#include "support/log_capture.h"
#include "support/seed.h"
#include "support/temp_dir.h"

namespace {

using testing::ElementsAre;

constexpr const char *kPath = "__default__";

class IniValues : public testing::Test {
protected:
    ~IniValues() override { InifileReleaseAll(); }
    static std::string text(const char *key) {
        char buf[512];
        return InifileGetValueA("s", key, buf, sizeof buf, nullptr, kPath) > 0 ? buf : "(none)";
    }
};

TEST_F(IniValues, AGetterThatUsedItsDefaultMakesTheNextOneFindIt) {
    char buf[8];
    EXPECT_EQ(-5, InifileGetValueA("s", "k", buf, sizeof buf, "first", kPath));
    EXPECT_STREQ("first", buf);
    EXPECT_EQ(6, InifileGetValueA("S", "K", buf, sizeof buf, "second", kPath));
    EXPECT_STREQ("first", buf);
    EXPECT_EQ(6, InifileGetValueA("s", "k", buf, 3, "", kPath))
        << "the stored length, though it was cut";
    EXPECT_STREQ("fi", buf);
    EXPECT_EQ(-7, InifileGetValueA("s", "long", buf, sizeof buf, "much longer", kPath))
        << "the length copied";
    EXPECT_EQ(12, InifileGetValueA("s", "long", buf, sizeof buf, "", kPath));
    EXPECT_EQ(0, InifileGetValueA("s", "bare", buf, sizeof buf, nullptr, kPath));
    EXPECT_EQ(-1, InifileValueExistsA("s", "bare", kPath))
        << "a key without value counts as missing";
    EXPECT_EQ(-1, InifileValueExistsA("s", "absent", kPath));
    EXPECT_EQ(0, InifileValueExistsA("s", "k", kPath));

    std::string names(64, 'x');
    EXPECT_EQ(12, InifileGetValueA("s", nullptr, names.data(), 10, nullptr, kPath));
    EXPECT_EQ(std::string("k\0long\0\0\0\0", 10), names.substr(0, 10)) << "bare does not fit whole";
    EXPECT_EQ(2, InifileGetValueA(nullptr, nullptr, names.data(), 64, nullptr, kPath));
    EXPECT_STREQ("s", names.c_str());
    EXPECT_EQ(0, InifileGetValueA("absent", nullptr, names.data(), 64, nullptr, kPath));
}

template <typename T>
struct Conversion {
    const char *stored;
    int result;  // 1 stands for the stored length + 1
    T out;
    int err;
};

template <typename T, typename Get, size_t n>
void checkConversions(const char *type, int failure, Get get, T defaultValue,
                      const Conversion<T> (&rows)[n]) {
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(type) + " of " + row.stored);
        vextest::LogCapture log;
        ASSERT_EQ(0, InifileSaveValueA("s", "n", row.stored, kPath));
        T out{};
        errno = 0;
        const int expected =
            row.result == 1 ? static_cast<int>(strlen(row.stored)) + 1 : row.result;
        EXPECT_EQ(expected, get("s", "n", &out, defaultValue, kPath));
        EXPECT_EQ(row.out, out);
        if (row.result != 1) {
            EXPECT_EQ(row.err, errno);
        }
        EXPECT_THAT(log.lines(), ElementsAre()) << "the caller reports bad values";
        EXPECT_EQ(failure, get("s", "n", nullptr, defaultValue, kPath));
    }
}

TEST_F(IniValues, TypedGettersConvertTheWholeTextOrKeepTheDefault) {
    vextest::LogCapture log;
    const Conversion<int> ints[] = {{"-12", 1, -12, 0},
                                    {"+7", 1, 7, 0},
                                    {"0x10", 0, 9, EINVAL},
                                    {"1 2", 0, 9, EINVAL},
                                    {"five", 0, 9, EINVAL},
                                    {"2147483648", 0, 9, ERANGE},
                                    {"-2147483648", 1, INT_MIN, 0}};
    checkConversions("int", 0, InifileGetIntegerA, 9, ints);
    const Conversion<unsigned> unsigneds[] = {
        {"4294967295", 1, UINT_MAX, 0}, {"4294967296", 0, 9, ERANGE}, {"-1", 0, 9, ERANGE}};
    checkConversions("unsigned", 0, InifileGetUIntegerA, 9U, unsigneds);
    const Conversion<short> shorts[] = {{"-32768", 1, SHRT_MIN, 0}, {"70000", 0, 9, ERANGE}};
    checkConversions("short", 0, InifileGetShortA, short{9}, shorts);
    const Conversion<unsigned short> ushorts[] = {{"65535", 1, USHRT_MAX, 0},
                                                  {"65536", 0, 9, ERANGE}};
    checkConversions("unsigned short", 0, InifileGetUShortA, static_cast<unsigned short>(9),
                     ushorts);
    const Conversion<long long> longs[] = {{"-9223372036854775808", 1, LLONG_MIN, 0},
                                           {"9223372036854775808", 0, 9, ERANGE}};
    checkConversions("long long", 0, InifileGetLongLongA, 9LL, longs);
    const Conversion<unsigned long long> ulongs[] = {{"-1", 1, ULLONG_MAX, 0},
                                                     {"18446744073709551616", 0, 9, ERANGE}};
    checkConversions("unsigned long long", 0, InifileGetULongLongA, 9ULL, ulongs);
}

TEST_F(IniValues, SizesPercentagesFloatsAndTruthValuesReadAlikeInEveryLocale) {
    setlocale(LC_ALL, "de_DE.UTF-8");  // where there is one
    vextest::LogCapture log;
    const Conversion<uint64_t> sizes[] = {{"10k", 1, 10000, 0},  {"2 KiB", -1, 9, EINVAL},
                                          {"2KiB", 1, 2048, 0},  {"KiB", -1, 9, EINVAL},
                                          {"-1", -1, 9, EINVAL}, {"1Kx", -1, 9, EINVAL}};
    checkConversions("size", -1, InifileGetSizeA, uint64_t{9}, sizes);
    const Conversion<double> percents[] = {{"12.5%", 1, 12.5, 0},   {"100 %", 1, 100, 0},
                                           {"0.5%", -1, 9, ERANGE}, {"101%", -1, 9, ERANGE},
                                           {"50", -1, 9, EINVAL},   {"nan%", -1, 9, ERANGE}};
    checkConversions("percentage", -1, InifileGetPercentageA, 9.0, percents);
    const Conversion<float> floats[] = {
        {"-1.5", 1, -1.5F, 0}, {"+2e3", 1, 2000, 0}, {"1,5", 0, 9, EINVAL}, {"1e99", 0, 9, ERANGE}};
    checkConversions("float", 0, InifileGetFloatA, 9.0F, floats);
    const Conversion<bool> truths[] = {
        {"Yes", 1, true, 0}, {"tomorrow", 1, true, 0}, {"10", 1, true, 0}, {"on", 1, false, 0}};
    checkConversions("bool", 0, InifileGetBooleanA, false, truths);

    // what the savers and defaults write
    InifileSaveFloatA("s", "float", -0.5F, kPath);
    EXPECT_EQ("-0." + std::string("5") + std::string(47, '0'), text("float"));
    InifileSaveFloatA("s", "large", 3.4028234e38F, kPath);
    float large = 0;
    EXPECT_LT(0, InifileGetFloatA("s", "large", &large, 0, kPath));
    EXPECT_EQ(3.4028234e38F, large);
    double percent = 0;
    EXPECT_EQ(-3, InifileGetPercentageA("s", "percent", &percent, 50, kPath));
    EXPECT_EQ("50%", text("percent"));
    float number = 0;
    EXPECT_EQ(-34, InifileGetFloatA("s", "f", &number, 0.25F, kPath));
    EXPECT_EQ("0.25" + std::string(30, '0'), text("f"));
    InifileSaveBooleanA("s", "b", true, kPath);
    InifileSaveSizeA("s", "size", UINT64_MAX, kPath);
    EXPECT_EQ("1 18446744073709551615", text("b") + " " + text("size"));
    char path[32];
    EXPECT_EQ(-8, InifileGetPathA("s", "p", path, sizeof path, "\\var\\\\x/", kPath));
    EXPECT_STREQ("/var/x", path);
    setlocale(LC_ALL, "C");
}

TEST_F(IniValues, RefusesNamesThatCouldNotBeReadBack) {
    for (const char *key : {"", "a=b", "a\nb", "[x", ";x", "#x", " x", "x ", "\xc3\xa4"}) {
        SCOPED_TRACE(key);
        vextest::LogCapture log;
        char buf[8];
        EXPECT_EQ(-1, InifileSaveValueA("s", key, "v", kPath));
        EXPECT_EQ(EINVAL, errno);
        EXPECT_THAT(
            log.lines(),
            ElementsAre(std::string("22 InifileSaveValueA: invalid section or key [s] ") + key));
        EXPECT_EQ(-1, InifileGetValueA("s", key, buf, sizeof buf, "d", kPath))
            << "the default serves, unstored";
    }
    vextest::LogCapture log;
    char buf[8];
    int number = 0;
    EXPECT_EQ(-1, InifileSaveValueA("a]b", "k", "v", kPath));
    EXPECT_EQ(0, InifileGetValueA("s", "k", nullptr, 5, "", kPath));
    EXPECT_EQ(0, InifileGetValueA("s", "k", buf, 0, "", kPath));
    EXPECT_EQ(0, InifileGetValueA("s", "k", buf, sizeof buf, "", nullptr));
    EXPECT_EQ(0, InifileGetIntegerA(nullptr, "k", &number, 1, kPath));
    EXPECT_THAT(log.lines(), ElementsAre("22 InifileSaveValueA: invalid section or key [a]b] k",
                                         "22 inifileGetNthValue: invalid NULL parameter or buflen",
                                         "22 inifileGetNthValue: invalid NULL parameter or buflen",
                                         "22 inifileGetNthValue: invalid NULL parameter",
                                         "22 InifileGetIntegerA: invalid NULL parameter"));
}

TEST_F(IniValues, CommentsBelongToTheFileASectionOrAKey) {
    char buf[64];
    InifileSaveValueA("s", "k", "1", kPath);
    EXPECT_EQ(0, InifileSaveCommentA(nullptr, nullptr, "head", kPath));
    EXPECT_EQ(0, InifileSaveCommentA("s", nullptr, "# one\r\ntwo\n\n", kPath));
    EXPECT_EQ(0, InifileSaveCommentA("s", "k", ";x", kPath));
    EXPECT_EQ(-1, InifileSaveCommentA("s", "absent", "x", kPath));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(14, InifileGetCommentA("s", nullptr, buf, sizeof buf, kPath));
    EXPECT_STREQ("# one\n; two\n\n", buf);
    vextest::TempDir dir;
    EXPECT_EQ(0, InifileSaveAsA((dir / "x").c_str(), kPath));
    EXPECT_EQ("; head\n# one\n; two\n\n[s]\n;x\nk=1\n\n", vextest::readFile(dir / "x"));
    EXPECT_EQ(0, InifileSaveCommentA("s", "k", nullptr, kPath));
    EXPECT_EQ(0, InifileGetCommentA("s", "k", buf, sizeof buf, kPath));
}

TEST_F(IniValues, ReportsBadValuesInOneBlockAndChecksPaths) {
    vextest::LogCapture log;
    InifileWarningA("f", "s", "k", nullptr, "why");
    InifileValueNoticeA("f", "s", nullptr, -4, "why");
    EXPECT_THAT(
        log.lines(0xff),
        ElementsAre(
            "\nBadValue : (none)\nFile     : f\nSection  : s\nEntry    : k\nReason   : why",
            "\nBadValue : -4\nFile     : f\nSection  : s\nEntry    : (none)\nReason   : why"));
    vextest::TempDir dir;
    const std::string file = dir / "file", missing = dir / "missing";
    vextest::writeFile(file, "");
    ASSERT_EQ(0, chmod(file.c_str(), 0400));
    const struct {
        std::string path;
        int kind, err;
        std::string reason;
    } rows[] = {{dir.path() + "//", S_IFDIR, 0, ""},
                {"", S_IFDIR, EINVAL, "Expected a non-empty value."},
                {missing, S_IFDIR, ENOENT, "not a directory (No such file or directory)"},
                {file, S_IFDIR, ENOTDIR, "not a directory (" + file + ")"},
                {dir.path(), S_IFREG, EISDIR, "not a file (" + dir.path() + ")"},
                {file, S_IFREG, EACCES, "incorrect permissions. Expected: 0600, actual: 0400"}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        log.clear();
        EXPECT_EQ(row.err == 0 ? 0 : -1,
                  InifileCheckPathA("f", "s", "k", row.path.c_str(), row.kind));
        if (row.err == 0) continue;
        EXPECT_EQ(row.err, errno);
        EXPECT_THAT(
            log.lines(),
            ElementsAre("\nBadValue : " + row.path +
                        "\nFile     : f\nSection  : s\nEntry    : k\nReason   : " + row.reason));
    }
}

TEST_F(IniValues, ManyThreadsShareOneStore) {
    vextest::TempDir dir;
    const std::string path = dir / "a.ini";
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 200; ++i) {
                int out = 0;
                InifileGetIntegerA("s", ("k" + std::to_string(i)).c_str(), &out, i, path.c_str());
                EXPECT_EQ(i, out);
                InifileSaveIntegerA("s", ("t" + std::to_string(t)).c_str(), i, path.c_str());
                if (i % 50 == 0) {
                    EXPECT_EQ(0, InifileSaveA(path.c_str()));
                }
            }
        });
    for (auto &thread : threads) thread.join();
    for (int t = 0; t < 4; ++t) {
        int out = 0;
        InifileGetIntegerA("s", ("t" + std::to_string(t)).c_str(), &out, 0, path.c_str());
        EXPECT_EQ(199, out);
    }
}

/// The plainest store that keeps the same promises.
struct Model {
    struct Key {
        std::string name;
        std::vector<std::string> values;  // newest first; none when deleted
    };
    struct Section {
        std::string name;
        std::vector<Key> keys;
        bool there = true;
    };
    std::vector<Section> sections;

    static bool same(const std::string &a, const std::string &b) {
        return strcasecmp(a.c_str(), b.c_str()) == 0;
    }
    Key *find(const std::string &section, const std::string &key) {
        for (auto &s : sections)
            if (s.there && same(s.name, section))
                for (auto &k : s.keys)
                    if (same(k.name, key)) return &k;
        return nullptr;
    }
    void set(const std::string &section, const std::string &key, const std::string &value) {
        auto s = std::find_if(sections.begin(), sections.end(),
                              [&](auto &one) { return same(one.name, section); });
        if (s == sections.end()) s = sections.insert(s, {section, {}, true});
        s->there = true;
        auto k = std::find_if(s->keys.begin(), s->keys.end(),
                              [&](auto &one) { return same(one.name, key); });
        if (k == s->keys.end()) k = s->keys.insert(k, {key, {}});
        if (k->values.empty()) k->values.emplace_back();
        k->values[0] = value;
    }
    void push(const std::string &section, const std::string &key, const std::string &value) {
        const Key *found = find(section, key);
        const auto older = found != nullptr ? found->values : std::vector<std::string>();
        set(section, key, value);
        Key &now = *find(section, key);
        now.values.resize(1);
        now.values.insert(now.values.end(), older.begin(), older.end());
        if (!older.empty()) now.name = key;  // the newest spelling shows
    }
    bool erase(const std::string &section, const std::string *key) {
        for (auto &s : sections) {
            if (!s.there || !same(s.name, section)) continue;
            bool any = key == nullptr;
            for (auto &k : s.keys) {
                if (key != nullptr && !same(k.name, *key)) continue;
                any = any || !k.values.empty();
                k.values.clear();
            }
            if (key == nullptr) s.there = false;
            return any;
        }
        return false;
    }
    void reload() {
        std::erase_if(sections, [](auto &s) { return !s.there; });
        for (auto &s : sections) std::erase_if(s.keys, [](auto &k) { return k.values.empty(); });
    }
    std::string list(const std::string *section) const {
        std::string out;
        for (const auto &s : sections) {
            if (!s.there) continue;
            if (section == nullptr)
                out += s.name + '\0';
            else if (same(s.name, *section))
                for (const auto &k : s.keys)
                    if (!k.values.empty()) out += k.name + '\0';
        }
        return out;
    }
};

TEST_F(IniValues, RandomOperationsAgreeWithAPlainModel) {
    vextest::TempDir dir;
    const std::string path = dir / "a.ini";
    std::mt19937 random(static_cast<unsigned>(vextest::testSeed()));
    const auto pick = [&](unsigned n) { return static_cast<unsigned>(random() % n); };
    const auto name = [&](unsigned n) {
        std::string text = "name-" + std::to_string(pick(n));
        for (char &c : text)
            if (pick(4) == 0) c = static_cast<char>(toupper(c));
        return text;
    };
    Model model;
    std::string text;
    for (int i = 0; i < 300; ++i) {
        const std::string section = name(6), key = name(40), value = std::to_string(i);
        text += "[" + section + "]\n" + key + "=" + value + "\n";
        model.push(section, key, value);
    }
    vextest::writeFile(path, text);
    const auto list = [&](const char *section) {
        char buf[4096];
        const int needed =
            InifileGetValueA(section, nullptr, buf, sizeof buf, nullptr, path.c_str());
        return std::string(buf, static_cast<size_t>(needed));
    };
    for (int i = 0; i < 20000; ++i) {
        const std::string section = name(6), key = name(40),
                          value = pick(5) == 0 ? "" : std::to_string(random());
        switch (pick(8)) {
            case 0:
                ASSERT_EQ(0, InifileSaveValueA(section.c_str(), key.c_str(), value.c_str(),
                                               path.c_str()));
                model.set(section, key, value);
                break;
            case 1: {
                const bool whole = pick(30) == 0;
                ASSERT_EQ(model.erase(section, whole ? nullptr : &key) ? 0 : -1,
                          InifileDeleteValueA(section.c_str(), whole ? nullptr : key.c_str(),
                                              path.c_str()));
                break;
            }
            case 2:
                if (pick(100) != 0) break;
                ASSERT_EQ(0, InifileSaveA(path.c_str()));
                ASSERT_EQ(0, InifileReleaseA(path.c_str()));
                model.reload();
                break;
            case 3:
                ASSERT_EQ(model.list(&section), list(section.c_str()));
                ASSERT_EQ(model.list(nullptr), list(nullptr));
                break;
            default: {
                char buf[64];
                const int n = static_cast<int>(pick(3));
                const Model::Key *found = model.find(section, key);
                const auto values = found != nullptr ? found->values : std::vector<std::string>();
                const bool hit = static_cast<size_t>(n) < values.size() &&
                                 !values[static_cast<size_t>(n)].empty();
                const std::string expected = hit ? values[static_cast<size_t>(n)] : value;
                const int length = static_cast<int>(expected.size());
                ASSERT_EQ(hit ? length + 1 : -length,
                          InifileGetNthValueA(n, section.c_str(), key.c_str(), buf, sizeof buf,
                                              value.c_str(), path.c_str()));
                ASSERT_EQ(expected, buf);
                if (!hit && (values.empty() || values[0].empty())) model.set(section, key, value);
            }
        }
    }
}

}  // namespace
