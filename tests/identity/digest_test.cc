#include "support/test.h"

const std::string kMd5Abc = "900150983cd24fb0d6963f7d28e17f72";
const std::string kSha256Abc = "53048e2681941ef99b2e29b76b4c7dabe4c2d0c634fc6d46e0e2f13107e7af23";

/// The digest as OpenSSL's own interface computes it.
static std::string oracle(const EVP_MD *kind, const std::string &data) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned size = 0;
    char text[2 * EVP_MAX_MD_SIZE];
    EVP_Digest(data.data(), data.size(), digest, &size, kind, nullptr);
    return {text, VexBufToSerialize(text, sizeof text, digest, size)};
}

using Digest = FolderTest;

TEST_F(Digest, AgreesWithPublishedVectorsAndOpenSslHoweverTheDataIsSplit) {
    EXPECT_EQ(kMd5Abc, MD5FromData("abc", 3));
    EXPECT_EQ(kSha256Abc, SHA256FromData("abc", 3));
    EXPECT_STREQ("c672b8d1ef56ed28ab87c3622c5114069bdd3ad7b8f9737498d0c01ecef0967a", SHA256FromData("", 0));
    EXPECT_STREQ("d41d8cd98f00b204e9800998ecf8427e", MD5FromData("", 0));
    std::mt19937 random(static_cast<unsigned>(testSeed()));
    for (const size_t size : {1, 55, 56, 63, 64, 65, 111, 112, 127, 128, 129, 32767, 32768, 32769, 100000}) {
        const std::string data = testNoise(size);
        MD5Context md5;
        SHA256Context sha;
        MD5Initialize(&md5);
        SHA256Initialize(&sha);
        for (size_t at = 0; at < size;) {
            const auto piece = static_cast<uint32_t>(std::min<size_t>(random() % 300, size - at));
            MD5Append(&md5, data.data() + at, piece);
            SHA256Append(&sha, data.data() + at, piece);
            at += piece;
        }
        MD5Finalize(&md5);
        SHA256Finalize(&sha);
        char text[65];
        EXPECT_EQ(oracle(EVP_md5(), data), MD5GetString(&md5));
        EXPECT_EQ(oracle(EVP_sha512_256(), data), SHA256GetString_r(&sha, text, sizeof text));
        EXPECT_EQ(oracle(EVP_md5(), data), MD5FromData_r(data.data(), size, text, 33));
        writeFile(path, data);
        EXPECT_EQ(oracle(EVP_sha512_256(), data), SHA256FromFile(path.c_str()));
    }
}

TEST_F(Digest, FailingFileCallsAreReportedAndCloseTheDescriptor) {
    writeFile(path, std::string(100000, 'x'));
    char text[65];
    const unsigned faults = forEachFault({"open", "read"}, EIO, [&](const FaultScope &scope) {
        errno = 0;
        EXPECT_EQ(scope.fired() ? nullptr : text, SHA256FromFile_r(path.c_str(), text, sizeof text));
        EXPECT_EQ(scope.fired() ? EIO : 0, errno);
        EXPECT_EQ(scope.faultedCall() == "open"   ? "5 SHA256FromFile_r: failed to open file " + path
                  : scope.faultedCall() == "read" ? "5 __sha512_256FromFile: file read failed"
                                                  : "",
            log.take());
    });
    EXPECT_EQ(7u, faults);
    EXPECT_FAILS(EINVAL, nullptr, __sha512_256FromFile(open("/dev/null", O_RDONLY), text, 64));
}

TEST_F(Digest, FipsModeKeepsSha512_256AndTakesMd5Away) {
    FaultScope fips("EVP_default_properties_is_fips_enabled", 1, 1, FaultScope::kLasting);
    char text[65];
    EXPECT_EQ(kSha256Abc, SHA256FromData_r("abc", 3, text, sizeof text));
    EXPECT_THAT(log.entries(), IsEmpty());
    EXPECT_EQ(std::string(32, '0'), MD5FromData("abc", 3));
    const std::string rest = " should not be used in FIPS mode";
    EXPECT_EQ("MD5Initialize" + rest + "\nMD5Append" + rest + "\nMD5Finalize" + rest, log.take());
    FaultScope both({"EVP_default_properties_is_fips_enabled", "EVP_MD_CTX_new"}, 1, 1, FaultScope::kLasting);
    EXPECT_EQ(nullptr, SHA256FromData_r("abc", 3, text, sizeof text));  // never one digest for all data
    EXPECT_THAT(log.lines(VEX_LOG_INFO), ElementsAre("SHA256Initialize: SHA512NULL"));
}

TEST(DigestForms, FitExactlyAndNameWhatIsWrong) {
    unsigned char md5[16], sha[32];
    char text[66];
    const std::string bad = kSha256Abc.substr(0, 63) + "G";
    EXPECT_EQ(32u, MD5DigestDeserialize(md5, (kMd5Abc + "zz").data(), 34, false));
    EXPECT_EQ(sha, SHA256StringToDigest_r(kSha256Abc.c_str(), sha));
    EXPECT_EQ(32u, MD5DigestSerialize(text, 32, md5, false));
    EXPECT_EQ(kMd5Abc, std::string(text, 32));
    EXPECT_EQ(kSha256Abc, SHA256DigestToString_r(sha, text, 65));
    EXPECT_EQ(0x90015098u, MD5DigestHash32(md5));
    EXPECT_EQ(0x53048e26u, SHA256DigestHash32(sha));
    EXPECT_FAILS_WITH("105 MD5DigestToString_r: buffer too small for md5", nullptr, MD5DigestToString_r(md5, text, 32));
    EXPECT_FAILS_WITH(
        "22 MD5DigestDeserialize: c1 is a non-digit found\n22 MD5StringToDigest_r: failed to deserialize md5", nullptr,
        MD5StringToDigest("900150983c"));
    EXPECT_FAILS_WITH("22 SHA256DigestDeserialize: c2 is a non-digit found. [" + bad +
                          "]\n22 SHA256StringToDigest_r: failed to deserialize sha256",
        nullptr, SHA256StringToDigest(bad.c_str()));
}

TEST(DigestOrder, CountsAsOneBigNumberAndWraps) {
    for (const auto &row : table(2,
             "00000000000000000000000000000000|00000000000000000000000000000001|"
             "000000000000000000000000000000ff|00000000000000000000000000000100|"
             "00ffffffffffffffffffffffffffffff|01000000000000000000000000000000|"
             "ffffffffffffffffffffffffffffffff|00000000000000000000000000000000|")) {
        unsigned char digest[16];
        (void)MD5StringToDigest_r(row[0].c_str(), digest);
        EXPECT_EQ(row[1], MD5DigestToString(MD5DigestIncrement(digest)));
        EXPECT_EQ(row[0], MD5DigestToString(MD5DigestDecrement(digest)));
    }
    unsigned char low[32], high[32];
    EXPECT_EQ(0, memcmp(SHA256DigestDecrement(SHA256DigestInitMinimum(low)), SHA256DigestInitMaximum(high), 32));
    EXPECT_EQ(0, memcmp(MD5DigestIncrement(MD5DigestInitMaximum(low)), MD5DigestInitMinimum(high), 16));
}

TEST(DigestOfNothing, IsRecognisedInBothForms) {
    EXPECT_EQ(2, MD5IsEmptyFP("D41D8CD98F00B204E9800998ECF8427E") + MD5IsEmptyDigest(MD5EmptyDigest()));
    EXPECT_EQ(1, SHA256IsEmptyDigest(SHA256StringToDigest(SHA256FromData("", 0))));
    EXPECT_EQ(0, MD5IsEmptyFP("d41d8cd98f00b204e9800998ecf8427e0") + MD5IsEmptyFP("d4") + MD5IsEmptyFP(nullptr));
    EXPECT_EQ(0, SHA256IsEmptyDigest(nullptr) + SHA256IsEmptyFP(kSha256Abc.c_str()));
}

TEST(FingerprintDeathTest, ValidationEndsTheProcessOnTheFirstFlaw) {
    MD5ValidateAndExitOnError(kMd5Abc.c_str());
    SHA256ValidateAndExitOnError(kSha256Abc.c_str());
    std::string upper = kSha256Abc;
    upper[2] = 'A';
    EXPECT_EXIT(
        SHA256ValidateAndExitOnError(upper.c_str()), testing::ExitedWithCode(1), "A is not in the range \\[0-9a-f\\]");
    EXPECT_EXIT(MD5ValidateAndExitOnError("abc"), testing::ExitedWithCode(1),
        "abc is not a valid FP, it has 3 instead of 32 characters");
}
