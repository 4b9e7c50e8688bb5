#include "support/test.h"

const std::string kText = "01f0e0d0c0b0a0908070605040302010";

static VexUID raw(const std::string &hex) {
    VexUID uid;
    (void)VexBufToDeserialize(&uid, sizeof uid, hex.data(), hex.size());
    return uid;
}

using Uid = FolderTest;

TEST_F(Uid, ValidityFollowsTheVersionByteOrTheUuidForm) {
    // bytes 0 to 8; the rest is zero
    for (const auto &row : table(2,
             "010000000000000000||050000000000400080||000000000000400080||0000000000004f0000||"
             "000000000000400040|invalid UID|000000000000500080|invalid UID|"
             "050000000000000000|unhandled version case|ff0000000000400040|unhandled version case|")) {
        SCOPED_TRACE(row[0]);
        const bool good = row[1].empty();
        const VexUID uid = raw(row[0] + "00000000000000");
        VexUID copy = raw(kText);
        char form[33];
        log.clear();
        EXPECT_EQ(good ? 1 : 0, VexUIDValidate(&uid));
        EXPECT_EQ(good ? "" : "22 VexUIDValidate: " + row[1], log.text());
        EXPECT_EQ(good ? 1u : 0u, VexUIDVersionGet(&uid));
        EXPECT_EQ(good ? &copy : nullptr, VexUIDInitCopy(&copy, &uid));
        EXPECT_EQ(good ? 16u : 0u, VexUIDDeserialize(&copy, &uid, 16, true));
        EXPECT_EQ(good ? 32u : 0u, VexUIDSerializedSize(&uid, false));
        EXPECT_EQ(good ? 32u : 0u, VexUIDSerialize(form, 32, &uid, false));
        EXPECT_EQ(good ? 1 : -1, VexUIDEqual(&uid, &uid));
        EXPECT_EQ(good ? 0 : INT_MAX, VexUIDCompare(&uid, &uid));
    }
    VexUID low = raw(kText), high = low;
    low.bytes[2] = 0x7f;  // signed characters would order 0x7f and 0xe0 the other way round
    EXPECT_EQ(-1, VexUIDCompare(&low, &high));
    EXPECT_EQ(1, VexUIDCompare(&high, &low));
}

TEST_F(Uid, GenerationIsRandomAndAFailureChangesNothing) {
    VexUID *a = VexUIDNew(), b;
    EXPECT_EQ(0u, VexUIDVersionGet(a));
    EXPECT_EQ(a, VexUIDGenerate(a, 1));
    EXPECT_EQ(&b, VexUIDGenerate(&b, 1));
    EXPECT_EQ(0, VexUIDEqual(a, &b));
    const VexUID before = b;
    EXPECT_EQ(nullptr, VexUIDGenerate(&b, 0));
    EXPECT_EQ(nullptr, VexUIDGenerate(&b, 2));
    {
        FaultScope fault({"RAND_bytes", "malloc"}, 1, EIO, FaultScope::kLasting);
        EXPECT_EQ(nullptr, VexUIDGenerate(&b, 1));
        EXPECT_EQ(nullptr, VexUIDNew());
    }
    EXPECT_EQ(1, VexUIDEqual(&before, &b));
    VexUIDDelete(&a);
    VexUIDDelete(&a);
    EXPECT_EQ(nullptr, a);
    EXPECT_THAT(log.lines(),
        ElementsAre("22 VexUIDGenerate: invalid UID", "22 VexUIDGenerate: unhandled version case",
            "5 RandomGetBytes: no random bytes could be drawn", "12 VexUIDNew: could not allocate memory"));
}

TEST_F(Uid, FormsArePinnedAndBadOnesLeaveTheIdentifierAlone) {
    const VexUID uid = raw(kText);
    char form[34];
    memset(form, '#', sizeof form);
    EXPECT_EQ(32u, VexUIDSerialize(form, 32, &uid, false));
    EXPECT_EQ(kText + "#", std::string(form, 33));
    EXPECT_EQ(32u, VexUIDSerialize(form, 33, &uid, false));
    EXPECT_EQ(kText, form);
    for (const auto &row : table(3,
             kText + "|t||01F0e0d0c0b0A0908070605040302010x|t||" + kText.substr(1) +
                 "|t|insufficient buffer||t|invalid NULL parameter|0123456789abcde|b|insufficient buffer for binary|" +
                 kText.substr(0, 31) + "g|t|input contained invalid character|00" + kText.substr(2) +
                 "|t|invalid UID|")) {
        SCOPED_TRACE(row[0]);
        log.clear();
        VexUID read = raw("01" + std::string(30, '7'));
        const VexUID before = read;
        const bool good = row[2].empty();
        EXPECT_EQ(good ? 32u : 0u, VexUIDDeserialize(&read, row[0].data(), row[0].size(), row[1] == "b"));
        EXPECT_EQ(1, VexUIDEqual(good ? &uid : &before, &read));
        EXPECT_EQ(good ? "" : "22 VexUIDDeserialize: " + row[2], log.text());
        writeFile(dir / "file", row[0]);
        vex::UniqueFile file(fopen((dir / "file").c_str(), "r"));
        size_t used = 0;
        EXPECT_EQ(good ? &read : nullptr, VexUIDInitFromFile(&read, file.get(), row[1] == "b", &used));
        EXPECT_EQ(good ? 32u : 0u, used);
    }
    VexUID read;
    EXPECT_FAILS_WITH("61 VexUIDInitFromFile: could not read from file", nullptr,
        VexUIDInitFromFile(&read, vex::UniqueFile(fopen("/dev/null", "r")).get(), true, nullptr));
}
