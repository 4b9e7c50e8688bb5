#include "crypto/key_store.h"
#include "crypto/streams.h"

/// A store whose current key's text begins with "0000000100000002".
struct Password : FolderTest {
    Password() { writeStore(0); }
    void writeStore(unsigned index) {
        std::string keys = "version=1\ncount=16\nindex=" + std::to_string(index) + "\n";
        for (int word = 0; word < 128; ++word) {
            const std::string number = std::to_string(word % 8);
            keys += "key" + std::to_string(word / 8) + "_" + number + "=" + std::to_string(word % 8 + 1) + "\n";
        }
        writeFile(store_, keys);
        writeFile(store_ + ".chksum", "crc=1\ncrc=" + std::to_string(vex::crypto::checksumOf(keys)) + "\n");
    }
    int encrypt(const std::string &src, size_t room = 2048) {
        return EncryptPasswdWithKey(store_.c_str(), src.c_str(), out_, static_cast<unsigned>(room));
    }
    int decrypt(const std::string &src, size_t room = 2048) {
        return DecryptPasswdWithKey(store_.c_str(), src.c_str(), out_, static_cast<unsigned>(room));
    }

    const std::string store_ = dir / "k";
    char out_[2048] = "old";
};

TEST_F(Password, ObscuresWithTheBuiltInKey) {
    for (const auto &row : table(2, "||abc|/EWC|\x9d'|AAA=|secret pass|7kKCKeFI1jr8VJI=|")) {
        const auto room = static_cast<unsigned>(row[1].size()) + 1, back = static_cast<unsigned>(row[0].size()) + 1;
        EXPECT_FAILS_WITH("22 PasswdEncode: destination too small", -1, PasswdEncode(row[0].c_str(), out_, room - 1));
        EXPECT_EQ(0, PasswdEncode(row[0].c_str(), out_, room));
        EXPECT_EQ(row[1], out_);
        EXPECT_EQ(-1, PasswdDecode(row[1].c_str(), out_, back - 1));
        EXPECT_EQ(0, PasswdDecode(row[1].c_str(), out_, back));
        EXPECT_EQ(row[0], out_);
    }
    log.clear();
    for (const size_t length : {1023U, 1024U}) {
        const std::string plain(length, '\x84');
        const FaultScope fault("malloc", 1, ENOMEM);
        EXPECT_EQ(length < 1024 ? 0 : -1, PasswdEncode(plain.c_str(), out_, sizeof out_));
        EXPECT_EQ(length < 1024 ? "" : "12 PasswdEncode: could not allocate memory", log.take());
        EXPECT_EQ(0, PasswdEncode(plain.c_str(), out_, sizeof out_));
        EXPECT_EQ(0, PasswdDecode(std::string(out_).c_str(), out_, sizeof out_));
        EXPECT_EQ(plain, out_);
    }
}

TEST_F(Password, EncryptsAsAesCtrBehindItsVector) {
    const VexKey key = testKey();
    for (const size_t n : {0U, 1U, 15U, 16U, 17U, 500U}) {
        const std::string plain(n, 'p');
        const auto room = static_cast<unsigned>(2 * (16 + n) + 1);
        unsigned char bytes[600];
        EXPECT_FAILS_WITH("22 PasswdEncrypt: dest_len(" + std::to_string(room - 1) + ") is too small", -1,
            PasswdEncrypt(key, plain.c_str(), out_, room - 1));
        EXPECT_EQ(0, PasswdEncrypt(key, plain.c_str(), out_, room));
        const std::string text(out_);
        ASSERT_EQ(16 + n, static_cast<size_t>(HexDecode(text.c_str(), bytes, sizeof bytes)));
        const std::string cipher(reinterpret_cast<char *>(bytes) + 16, n);
        EXPECT_EQ(plain, evp(EVP_aes_256_ctr(), false, bytes, cipher));
        EXPECT_EQ(-1, PasswdDecrypt(key, text.c_str(), out_, room - 2));
        EXPECT_EQ(0, PasswdDecrypt(key, text.c_str(), out_, room - 1));
        EXPECT_EQ(plain, out_);
    }
    for (const auto &row : table(2, "30|wrong input length(30)|33|wrong input length(33)|32|decryption failed|"))
        EXPECT_FAILS_WITH("22 PasswdDecrypt: " + row[1], -1,
            PasswdDecrypt(key, std::string(std::stoul(row[0]), 'g').c_str(), out_, 99));
}

TEST_F(Password, RecognisesItsOwnTextsAndPassesOthersThrough) {
    for (const auto &row :
        table(2, "|0|X00000|0|X00000a|0|X00000ab|1|X00000aB09|1|X10000ab|0|x00000ab|0|X00000ag|0|X00001ab|0|"))
        EXPECT_EQ(row[1] == "1", IsEncrypted(row[0].c_str())) << row[0];
    EXPECT_EQ(0, encrypt("X00000ab", 9));
    EXPECT_STREQ("X00000ab", out_);
    EXPECT_EQ(-1, encrypt("X00000ab", 8));
    EXPECT_EQ(0, decrypt("hunter2", 8));
    EXPECT_STREQ("hunter2", out_);
    EXPECT_EQ(-1, decrypt("hunter22", 8));
    const std::string seen = "0 EncryptPasswdWithKey: index\\(0\\), passwd\\(X00000ab\\) encrypted already.\n",
                      plain = "DecryptPasswdWithKey: key\\([0-9a-f]{8}\\) index\\(0\\) does not encrypted.\n",
                      small = "PasswdWithKey: dest_len\\(8\\) is too small";
    EXPECT_THAT(
        log.text(), MatchesRegex(seen + seen + "22 Encrypt" + small + "\n" + plain + plain + "22 Decrypt" + small));
}

TEST_F(Password, KeepsPasswordsOfEveryLengthUnderTheStoresKey) {
    for (const size_t n : {0U, 1U, 491U, 492U, 493U, 495U}) {
        const std::string plain(n, 'Q');
        EXPECT_FAILS(EINVAL, -1, encrypt(plain, 2 * n + 38));
        ASSERT_EQ(0, encrypt(plain, 2 * n + 39));
        const std::string text(out_);
        EXPECT_TRUE(IsEncrypted(text.c_str()));
        ASSERT_EQ(0, PasswdDecrypt(VexKey("00000001000000020000000300000004"), text.c_str() + 6, out_, sizeof out_));
        EXPECT_EQ(plain, out_);
        ASSERT_EQ(0, decrypt(text));
        EXPECT_EQ(plain, out_);
    }
    const std::string header = "22 DecryptPasswdWithKey: wrong encrypted header",
                      over = " of encrypted passwd is over 1024.";
    EXPECT_FAILS_WITH("22 the length(496) of src is too long for 1024.", -1, encrypt(std::string(496, 'Q')));
    EXPECT_FAILS_WITH("22 the length(1024)" + over, -1, decrypt(std::string(1024, 'Q')));
    EXPECT_FAILS_WITH("22 the length(1030)" + over, -1, decrypt("X00000" + std::string(1024, 'a')));
    EXPECT_FAILS_WITH(header + "(X00000), src(<not shown>).", -1, decrypt("Xylophone"));
    EXPECT_FAILS_WITH(header + "(X00000), src(X10000ab).", -1, decrypt("X10000ab"));
    EXPECT_FAILS_WITH(
        "22 PasswdDecrypt: wrong input length(2)\n22 can't decrypt passwd for key index(0).", -1, decrypt("X00000ab"));
    writeStore(10);  // encrypting writes the index in lower case, decrypting expects upper case
    EXPECT_EQ(0, encrypt("p"));
    EXPECT_EQ(0U, std::string(out_).find("Xa0000"));
    EXPECT_FAILS_WITH(header + "(XA0000), src(Xa0000ab).", -1, decrypt("Xa0000ab"));
}
TEST_F(Password, FailsCleanlyWithoutMemoryOrRandomBytes) {
    ASSERT_EQ(0, encrypt("secret"));
    const std::string text(out_);
    for (const bool back : {false, true}) {
        const auto faults = forEachFault({"malloc", "new", "RAND_bytes"}, ENOMEM, [&](const auto &fault) {
            strcpy(out_, "old");
            const int result = back ? decrypt(text) : encrypt("secret");
            FaultPause pause;
            EXPECT_EQ(fault.fired() ? -1 : 0, result) << fault.faultedCall();
            EXPECT_EQ(fault.fired(), std::string(out_) == "old" && !log.take().empty());
        });
        EXPECT_GT(faults, back ? 2U : 3U);
    }
}
