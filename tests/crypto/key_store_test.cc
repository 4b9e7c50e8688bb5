#include "crypto/key_store.h"

#include "support/test.h"

const std::string kStore =
    "version=1\ncount=2\nindex=1\n"
    "key0_0=0\nkey0_1=0\nkey0_2=0\nkey0_3=0\nkey0_4=0\nkey0_5=0\nkey0_6=0\nkey0_7=0\n"
    "key1_0=1\nkey1_1=4294967295\nkey1_2=305419896\nkey1_3=3735928559\nkey1_4=5\nkey1_5=6\nkey1_6=7\n"
    "key1_7=2147483648\n";
const char kCrc[] = "crc=3831700809\n";

static std::string keyText(const std::string &store) {
    char key[4096] = "";
    return RetrieveAuthKey(key, store.c_str()) == 0 ? key : "unreadable";
}

using KeyStore = FolderTest;

TEST_F(KeyStore, IsReadAsWrittenAndNamesEveryError) {
    writeFile(path, kStore);
    writeFile(path + ".chksum", kCrc);
    EXPECT_EQ("00000001ffffffff12345678deadbeef00000005000000060000000780000000", keyText(path));
    const auto with = [](const char *old, const char *text) {
        return std::string(kStore).replace(kStore.find(old), strlen(old), text);
    };
    const std::string good(kCrc), line = "bad line format in k, line ", none = ": No such file or directory";
    const struct {
        int code, err;
        std::string keys, checksum, text;  // an empty file is left out, "right" is what the keys need
    } rows[] = {
        {1, ENOENT, "", good, "file read error for k" + none},
        {1, EFBIG, std::string(4096, '1'), good, "file read error for k: File too large"},
        {2, EINVAL, with("version=1", "version=2"), "right", line + "1"},
        {2, EINVAL, with("count=2", "Count=2"), "right", line + "2"},
        {2, EINVAL, with("index=1", "index= 1"), "right", line + "3"},
        {2, EINVAL, with("key0_1=0", "key0_1="), "right", line + "5"},
        {2, EINVAL, with("4294967295", "4294967296"), "right", line + "13"},
        {2, EINVAL, kStore + "key2_0=1\n", "right", line + "19"},
        {2, EINVAL, kStore.substr(0, kStore.size() - 1), "right", line + "19"},
        {2, EINVAL, kStore, "crc\n", "bad line format in k.chksum, line 1"},
        {2, EINVAL, kStore, good + good + good, "bad line format in k.chksum, line 2"},
        {3, EBADMSG, with("key0_1=0", "key0_1=1"), good, "CRC mismatch for k"},
        {4, ERANGE, with("index=1", "index=2"), "right", "k: index(2) is out of range[0, 2)"},
        {4, ERANGE, with("count=2", "count=17"), "right", "k: count(17) is out of range[0, 17)"},
        {5, ENOENT, kStore, "", "failed to load chksum file k.chksum" + none},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        dir.empty();
        ASSERT_EQ(0, chdir(dir.path().c_str()));
        const std::string right = "crc=" + std::to_string(vex::crypto::checksumOf(row.keys)) + "\n";
        if (!row.keys.empty()) writeFile("k", row.keys);
        if (!row.checksum.empty()) writeFile("k.chksum", row.checksum == "right" ? right : row.checksum);
        const std::string code = std::to_string(row.err) + " ", first = code + "readKeyStore: " + row.text + "\n",
                          second = code + "can't get authentication key for type(0).\n";
        char out[99] = "old";
        EXPECT_EQ(row.code, DecryptPasswdWithKey("k", "x", out, sizeof out));
        EXPECT_EQ(row.err, errno);
        EXPECT_EQ(-1, RetrieveAuthKey(out, "k"));
        EXPECT_EQ(row.code, PasswdKeyStoreRotate("k"));
        EXPECT_STREQ("old", out);
        EXPECT_EQ(first + second + first + second + first, log.take() + "\n");
        ASSERT_EQ(0, chdir("/"));
    }
}

TEST_F(KeyStore, RotatesUntilFullBehindALinkAndUnderReaders) {
    const std::string store = dir / "link";
    ASSERT_EQ(0, PasswdKeyStoreInit((dir / "k").c_str()));
    EXPECT_EQ(0600U, modeOf(dir / "k") | modeOf(dir / "k.chksum"));
    ASSERT_EQ(0, symlink("k", store.c_str()) + symlink("k.chksum", (store + ".chksum").c_str()));
    ASSERT_EQ(0, chmod((dir / "k").c_str(), 0640));
    std::atomic<bool> stop{false};
    std::thread reader([&] {
        while (!stop) EXPECT_NE("unreadable", keyText(store));
    });
    for (char index = '0'; index <= '9'; ++index) {
        char text[99], plain[99];
        EXPECT_EQ(0, EncryptPasswdWithKey(store.c_str(), "secret", text, sizeof text));
        EXPECT_EQ(index, text[1]);
        EXPECT_EQ(0, DecryptPasswdWithKey(store.c_str(), text, plain, sizeof plain));
        EXPECT_STREQ("secret", plain);
        const std::string before = keyText(store);
        EXPECT_EQ(index < '9' ? 0 : -1, PasswdKeyStoreRotate(store.c_str()));
        EXPECT_EQ(index < '9', before != keyText(store));
        EXPECT_EQ(index < '9', log.take().empty());
    }
    stop = true;
    reader.join();
    EXPECT_EQ(0640U, modeOf(dir / "k"));
    const std::string content = readFile(dir / "k");
    EXPECT_FAILS(EEXIST, -1, PasswdKeyStoreInit((dir / "k").c_str()));
    EXPECT_EQ(content, readFile(dir / "k"));
    EXPECT_THAT(dir.list(), ElementsAre("k", "k.chksum", "link", "link.chksum"));
}

// Whatever fails, and wherever the machine stops, the old store or the new one is readable.
TEST_F(KeyStore, SurvivesEveryFailureAndCrash) {
    const std::string store = dir / "k";
    for (const bool rotate : {false, true}) {
        std::string before;
        const auto prepare = [&] {
            dir.empty();
            if (rotate) { EXPECT_EQ(0, PasswdKeyStoreInit(store.c_str())); }
            before = keyText(store);
            log.clear();
        };
        const auto act = [&](bool again) {
            return again ? PasswdKeyStoreRotate(store.c_str()) : PasswdKeyStoreInit(store.c_str());
        };
        const auto check = [&](bool faulted) {
            const std::string after = keyText(store);
            EXPECT_TRUE(after != "unreadable" || (!rotate && faulted));
            EXPECT_EQ(0, act(access(store.c_str(), F_OK) == 0)) << "it can go on";
            EXPECT_THAT(dir.list(), ElementsAre("k", "k.chksum"));
            prepare();
            return after;
        };
        prepare();
        const std::vector<std::string> calls = {
            "open", "read", "write", "close", "fsync", "rename", "fchmod", "stat", "lstat", "new", "RAND_bytes"};
        EXPECT_LT(5U, forEachFault(calls, EIO, [&](const FaultScope &fault) {
            const int result = act(rotate);
            const FaultPause pause;
            EXPECT_EQ(result == 0, log.take().empty());
            const size_t files = dir.list().size();
            const std::string old = before, after = check(fault.fired());
            EXPECT_TRUE(result != 0 || after != old) << fault.faultedCall();
            EXPECT_EQ(after == "unreadable" ? 0U : 2U, files) << fault.faultedCall();
        }));
        EXPECT_LT(5U, forEachCrash(
                          {"write", "fsync", "rename"}, [&] { act(rotate); }, check));
    }
}
