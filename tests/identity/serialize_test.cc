#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>

#include <vex/serialize.h>

#include "base/unique_fd.h"
#include "support/faults.h"
#include "support/log_capture.h"
#include "support/table.h"
#include "support/temp_dir.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// The four operations of one width behind one type, so that tables can name the width.
struct Width {
    std::function<size_t(uint64_t, bool)> size;
    std::function<size_t(void *, size_t, uint64_t, bool)> write;
    std::function<bool(uint64_t *, const void *, size_t, bool, size_t *)> read;
    std::function<bool(uint64_t *, FILE *, bool, size_t *)> read_file;
};

template <typename Number, auto Size, auto Write, auto Read, auto ReadFile>
Width width() {
    const auto widened = [](uint64_t *out, auto parse) {
        Number number = 99;
        const bool good = parse(&number) == &number;
        *out = number;
        return good;
    };
    return {[](uint64_t v, bool b) { return Size(static_cast<Number>(v), b); },
            [](void *to, size_t n, uint64_t v, bool b) {
                return Write(to, n, static_cast<Number>(v), b);
            },
            [=](uint64_t *v, const void *from, size_t n, bool b, size_t *used) {
                return widened(v, [&](Number *out) { return Read(out, from, n, b, used); });
            },
            [=](uint64_t *v, FILE *file, bool b, size_t *used) {
                return widened(v, [&](Number *out) { return ReadFile(out, file, b, used); });
            }};
}

uint16_t *noFile(uint16_t *, FILE *, bool, size_t *) {
    return nullptr;
}

const Width &widthOf(const std::string &bits) {
    static const Width k8 = width<uint8_t, VexUint8SerializedSize, VexUint8Serialize,
                                  VexUint8InitDeserialize, VexUint8InitFromFile>(),
                       k16 = width<uint16_t, VexUint16SerializedSize, VexUint16Serialize,
                                   VexUint16InitDeserialize, noFile>(),
                       k32 = width<uint32_t, VexUint32SerializedSize, VexUint32Serialize,
                                   VexUint32InitDeserialize, VexUint32InitFromFile>(),
                       k64 = width<uint64_t, VexUint64SerializedSize, VexUint64Serialize,
                                   VexUint64InitDeserialize, VexUint64InitFromFile>();
    return bits == "8" ? k8 : bits == "16" ? k16 : bits == "32" ? k32 : k64;
}

TEST(Integers, BothFormsArePinnedFitExactlyAndReadBack) {
    vextest::LogCapture log;
    vextest::TempDir dir;
    for (const auto &row : vextest::table(
             3,
             "8|0|00|8|255|ff|16|258|0102|16|65535|ffff|32|0|00000000|32|16909060|01020304|"
             "32|4294967295|ffffffff|64|9|0000000000000009|64|72623859790382856|0102030405060708|"
             "64|18446744073709551615|ffffffffffffffff|")) {
        for (const bool binary : {true, false}) {
            SCOPED_TRACE(row[1] + (binary ? " binary" : " text"));
            const Width &width = widthOf(row[0]);
            const uint64_t value = std::stoull(row[1]);
            const size_t size = binary ? row[2].size() / 2 : row[1].size();
            EXPECT_EQ(size, width.size(value, binary));
            if (row[0] == "16" && !binary) continue;
            char form[24], hex[48];
            memset(form, '#', sizeof form);
            EXPECT_EQ(size, width.write(form, size, value, binary));
            EXPECT_EQ('#', form[size]);
            EXPECT_EQ(binary ? row[2] : row[1],
                      binary ? std::string(hex, VexBufToSerialize(hex, sizeof hex, form, size))
                             : std::string(form, size));
            uint64_t back = 0;
            size_t used = 0;
            EXPECT_TRUE(width.read(&back, form, size, binary, &used));
            EXPECT_EQ(value, back);
            EXPECT_EQ(size, used);
            vextest::writeFile(dir / "file", std::string(form, size) + "x");
            if (row[0] == "16") continue;
            vex::UniqueFile file(fopen((dir / "file").c_str(), "r"));
            EXPECT_TRUE(width.read_file(&back, file.get(), binary, nullptr));
            EXPECT_EQ(value, back);
            EXPECT_EQ('x', getc(file.get()));
            EXPECT_EQ(size, width.write(form, size + 1, value, binary));
            EXPECT_EQ(binary ? '#' : '\0', form[size]);
        }
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(Integers, ShortBuffersFailAndOnlySomeWidthsSaySo) {
    for (const auto &row : vextest::table(3, "8|b|1|8|t|0|16|b|0|32|b|0|32|t|1|64|b|0|64|t|1|")) {
        SCOPED_TRACE(row[0] + row[1]);
        vextest::LogCapture log;
        const bool binary = row[1] == "b";
        char form[24] = "#";
        EXPECT_EQ(0u,
                  widthOf(row[0]).write(form, widthOf(row[0]).size(200, binary) - 1, 200, binary));
        EXPECT_EQ(ENOBUFS, errno);
        EXPECT_EQ(binary ? '#' : '\0', form[0]);
        if (row[2] == "1")
            EXPECT_THAT(log.lines(), ElementsAre("105 VexUint" + row[0] +
                                                 "Serialize: incompatible bufsize and value size"));
        else
            EXPECT_THAT(log.lines(), IsEmpty());
    }
}

TEST(Integers, BadTextAndBadBuffersAreNamedAndGiveZero) {
    vextest::TempDir dir;
    for (const auto &row : vextest::table(
             4,
             "8|256|34|value is too large to be expressed as a uint8_t: 256|"
             "32|4294967296|34|value is too large to be expressed as a uint8_t: 4294967296|"
             "64|18446744073709551616|22|had an error occur during vex_strtoull: Numerical result "
             "out of range|"
             "8|-1|22|expected ptr and _buf to be equal|32| 1|22|expected ptr and _buf to be equal|"
             "16|1|22|invalid binary value -- not tested|8||22|invalid NULL buf or 0 buf size|"
             "64||22|invalid NULL buffer or empty buffer|")) {
        SCOPED_TRACE(row[0] + " '" + row[1] + "'");
        vextest::LogCapture log;
        uint64_t value = 99;
        size_t used = 77;
        EXPECT_FALSE(widthOf(row[0]).read(&value, row[1].data(), row[1].size(), false, &used));
        EXPECT_EQ(std::stoi(row[2]), errno);
        EXPECT_EQ(0u, value);
        EXPECT_EQ(77u, used);
        EXPECT_THAT(log.lines(),
                    ElementsAre(row[2] + " VexUint" + row[0] + "InitDeserialize: " + row[3]));
    }
    uint8_t byte = 0;
    uint64_t number = 0;
    size_t used = 0;
    EXPECT_NE(nullptr, VexUint8InitDeserialize(&byte, "12x", 3, false, &used));
    EXPECT_EQ(2u, used);
    const std::string zeros(31, '0');
    EXPECT_NE(nullptr, VexUint64InitDeserialize(&number, (zeros + "7").data(), 32, false, &used));
    EXPECT_EQ(31u, used);
    EXPECT_EQ(0u, number);
}

TEST(Integers, EveryFailingReadOfAFileIsReported) {
    vextest::TempDir dir;
    vextest::writeFile(dir / "file", "12");
    vex::UniqueFile file(fopen((dir / "file").c_str(), "r")),
        directory(fopen(dir.path().c_str(), "r"));
    for (const auto &row : vextest::table(
             3,
             "end|b|61 VexUint64InitFromFile (#): unable to read file: No data available|"
             "end|t|22 VexUint64InitDeserialize: invalid NULL buffer or empty buffer|"
             "dir|b|21 VexUint64InitFromFile (#): unable to read file: Is a directory|"
             "dir|t|5 VexUint64InitFromFile (#): unable to read file: Input/output error|"
             "null|b|22 VexUint64InitFromFile: invalid NULL file|")) {
        vextest::LogCapture log;
        uint64_t value = 99;
        FILE *const from = row[0] == "end"   ? file.get()
                           : row[0] == "dir" ? directory.get()
                                             : nullptr;
        if (row[0] == "end" && row[1] == "t") (void)fseek(from, 0, SEEK_END);
        EXPECT_EQ(nullptr, VexUint64InitFromFile(&value, from, row[1] == "b", nullptr));
        EXPECT_EQ(0u, value);
        std::string line = log.lines().back();
        if (const size_t open = line.find(" ("); open != std::string::npos)
            line.replace(open + 2, line.find(')') - open - 2, "#");
        EXPECT_EQ(row[2], line);
        EXPECT_EQ(std::stoi(row[2]), errno);
    }
}

TEST(RawBytes, HexadecimalReadsBackAndNamesTheBadCharacter) {
    vextest::LogCapture log;
    char text[8] = "#######", bytes[4];
    EXPECT_EQ(4u, VexBufToSerialize(text, 4, "\x0f\xa0", 2));
    EXPECT_EQ("0fa0###", std::string(text));
    EXPECT_EQ(4u, VexBufToSerialize(text, 5, "\x0f\xa0", 2));
    EXPECT_EQ("0fa0", std::string(text));
    EXPECT_EQ(2u, VexBufToDeserialize(bytes, 2, "0FA0?", 5));
    EXPECT_EQ(0, memcmp("\x0f\xa0", bytes, 2));
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(0u, VexBufToSerialize(text, 3, "\x0f\xa0", 2));
    EXPECT_EQ(0u, VexBufToDeserialize(bytes, 1, "0fa0", 4));
    EXPECT_EQ(0u, VexBufToDeserialize(bytes, 4, "0g", 2));
    EXPECT_EQ(0u, VexBufToDeserialize(bytes, 4, "00g0", 4));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_THAT(log.lines(),
                ElementsAre("22 VexBufToSerialize: invalid NULL parameter or bufsize too small",
                            "22 VexBufToDeserialize: invalid NULL parameter or bufsize too small",
                            "22 VexBufToDeserialize: c2 is a non-digit found",
                            "22 VexBufToDeserialize: c1 is a non-digit found"));
}

}  // namespace
