#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>

#include <vex/serialize.h>
#include <vex/uid.h>

#include "base/unique_fd.h"
#include "support/faults.h"
#include "support/log_capture.h"
#include "support/table.h"
#include "support/temp_dir.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string kText = "01f0e0d0c0b0a0908070605040302010";

VexUID raw(const std::string &hex) {
    VexUID uid;
    (void)VexBufToDeserialize(&uid, sizeof uid, hex.data(), hex.size());
    return uid;
}

TEST(Uid, ValidityFollowsTheVersionByteOrTheUuidForm) {
    const std::string tail = "00000000000000000000";
    for (const auto &row :
         vextest::table(4,
                        "010000000000000000000000|1|1||050000000000400080000000|1|1||"
                        "000000000000400080000000|1|1||"
                        "0000000000004f0000000000|1|1||000000000000400040000000|0|0|invalid UID|"
                        "000000000000500080000000|0|0|invalid "
                        "UID|050000000000000000000000|0|0|unhandled version case|"
                        "ff0000000000400040000000|0|0|unhandled version case|")) {
        SCOPED_TRACE(row[0]);
        vextest::LogCapture log;
        const VexUID uid = raw((row[0] + tail).substr(0, 32));
        EXPECT_EQ(std::stoi(row[1]), VexUIDValidate(&uid));
        if (row[3].empty())
            EXPECT_THAT(log.lines(), IsEmpty());
        else
            EXPECT_THAT(log.lines(), ElementsAre("22 VexUIDValidate: " + row[3]));
        EXPECT_EQ(std::stoul(row[2]), VexUIDVersionGet(&uid));
        VexUID copy = raw(kText);
        EXPECT_EQ(row[1] == "1" ? &copy : nullptr, VexUIDInitCopy(&copy, &uid));
        EXPECT_EQ(row[1] == "1" ? 32u : 0u, VexUIDSerializedSize(&uid, false));
        char form[33];
        EXPECT_EQ(row[1] == "1" ? 16u : 0u, VexUIDDeserialize(&copy, &uid, 16, true));
        EXPECT_EQ(row[1] == "1" ? 32u : 0u, VexUIDSerialize(form, 32, &uid, false));
        EXPECT_EQ(row[1] == "1" ? 1 : -1, VexUIDEqual(&uid, &uid));
        EXPECT_EQ(row[1] == "1" ? 0 : INT_MAX, VexUIDCompare(&uid, &uid));
    }
}

TEST(Uid, GenerationIsRandomAndAFailureChangesNothing) {
    vextest::LogCapture log;
    VexUID *a = VexUIDNew(), b;
    EXPECT_EQ(0, a->bytes[0]);
    EXPECT_EQ(a, VexUIDGenerate(a, 1));
    EXPECT_EQ(&b, VexUIDGenerate(&b, 1));
    EXPECT_EQ(1, a->bytes[0]);
    EXPECT_EQ(0, VexUIDEqual(a, &b));
    EXPECT_THAT(log.lines(), IsEmpty());
    const VexUID before = b;
    EXPECT_EQ(nullptr, VexUIDGenerate(&b, 0));
    EXPECT_EQ(nullptr, VexUIDGenerate(&b, 2));
    {
        vextest::FaultScope fault(std::vector<std::string>{"RAND_bytes", "malloc"}, 1, EIO);
        fault.keepFailing();
        EXPECT_EQ(nullptr, VexUIDGenerate(&b, 1));
        EXPECT_EQ(nullptr, VexUIDNew());
        EXPECT_EQ(ENOMEM, errno);
    }
    EXPECT_EQ(1, VexUIDEqual(&before, &b));
    VexUIDDelete(&a);
    EXPECT_EQ(nullptr, a);
    VexUIDDelete(&a);
    EXPECT_THAT(log.lines(), ElementsAre("22 VexUIDGenerate: invalid UID",
                                         "22 VexUIDGenerate: unhandled version case",
                                         "5 RandomGetBytes: no random bytes could be drawn",
                                         "12 VexUIDNew: could not allocate memory"));
}

TEST(Uid, FormsArePinnedAndBadOnesLeaveTheIdentifierAlone) {
    vextest::TempDir dir;
    const VexUID uid = raw(kText);
    char form[34];
    memset(form, '#', sizeof form);
    EXPECT_EQ(32u, VexUIDSerialize(form, 32, &uid, false));
    EXPECT_EQ(kText + "#", std::string(form, 33));
    EXPECT_EQ(32u, VexUIDSerialize(form, 33, &uid, false));
    EXPECT_EQ(kText, form);
    EXPECT_EQ(16u, VexUIDSerialize(form, 16, &uid, true));
    EXPECT_EQ(0, memcmp(&uid, form, 16));
    for (const auto &row : vextest::table(
             3, kText + "|t||01F0e0d0c0b0A0908070605040302010x|t||" + kText.substr(1) +
                    "|t|insufficient buffer|"
                    "|t|invalid NULL parameter|0123456789abcde|b|insufficient buffer for binary|" +
                    kText.substr(0, 31) + "g|t|input contained invalid character|" +
                    "00f0e0d0c0b0a0908070605040302010|t|invalid UID|")) {
        SCOPED_TRACE(row[0]);
        vextest::LogCapture log;
        VexUID read = raw("01" + std::string(30, '7'));
        const VexUID before = read;
        const bool good = row[2].empty();
        EXPECT_EQ(good ? 32u : 0u,
                  VexUIDDeserialize(&read, row[0].data(), row[0].size(), row[1] == "b"));
        EXPECT_EQ(1, VexUIDEqual(good ? &uid : &before, &read));
        EXPECT_EQ(good ? "" : "22 VexUIDDeserialize: " + row[2],
                  log.lines().empty() ? "" : log.lines()[0]);
        // and the same from a file, where what is missing is a short read
        vextest::writeFile(dir / "file", row[0]);
        vex::UniqueFile file(fopen((dir / "file").c_str(), "r"));
        size_t used = 0;
        EXPECT_EQ(good ? &read : nullptr,
                  VexUIDInitFromFile(&read, file.get(), row[1] == "b", &used));
        EXPECT_EQ(good ? 32u : 0u, used);
    }
    vextest::LogCapture log;
    VexUID read, higher = uid;
    EXPECT_EQ(nullptr, VexUIDInitFromFile(&read, vex::UniqueFile(fopen("/dev/null", "r")).get(),
                                          true, nullptr));
    EXPECT_EQ(ENODATA, errno);
    EXPECT_THAT(log.lines(), ElementsAre("61 VexUIDInitFromFile: could not read from file"));
    higher.bytes[2] = 0x7f;  // signed characters would order 0x7f and 0xe0 the other way round
    EXPECT_EQ(1, VexUIDCompare(&uid, &higher));
    EXPECT_EQ(-1, VexUIDCompare(&higher, &uid));
}

}  // namespace
