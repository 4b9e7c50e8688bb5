#include <vex/serialize.h>

#include "base/unique_fd.h"
#include "support/test.h"

namespace {

using testing::ElementsAre;

/// The operations of one width.
template <typename Number>
struct Width {
    size_t (*size)(Number, bool);
    size_t (*write)(void *, size_t, Number, bool);
    Number *(*read)(Number *, const void *, size_t, bool, size_t *);
    Number *(*read_file)(Number *, FILE *, bool, size_t *);
};
const Width<uint8_t> k8 = {VexUint8SerializedSize, VexUint8Serialize, VexUint8InitDeserialize, VexUint8InitFromFile};
const Width<uint16_t> k16 = {VexUint16SerializedSize, VexUint16Serialize, VexUint16InitDeserialize, nullptr};
const Width<uint32_t> k32 = {
    VexUint32SerializedSize, VexUint32Serialize, VexUint32InitDeserialize, VexUint32InitFromFile};
const Width<uint64_t> k64 = {
    VexUint64SerializedSize, VexUint64Serialize, VexUint64InitDeserialize, VexUint64InitFromFile};

/// A value and its binary form in hexadecimal: both forms fit exactly, are what they must be and read back.
template <typename Number>
void checkForms(const Width<Number> &width, Number value, const std::string &hex) {
    vextest::TempDir dir;
    for (const bool binary : {true, false}) {
        SCOPED_TRACE(hex + (binary ? " binary" : " text"));
        char form[24];
        if (!binary) {
            EXPECT_EQ(std::to_string(value).size(), width.size(value, false));
            if (sizeof value == 2) continue;
        }
        memset(form, '#', sizeof form);
        const size_t size = width.size(value, binary);
        EXPECT_EQ(size, width.write(form, size, value, binary));
        EXPECT_EQ('#', form[size]);
        char digits[48];
        EXPECT_EQ(binary ? hex : std::to_string(value),
            binary ? std::string(digits, VexBufToSerialize(digits, 48, form, size)) : std::string(form, size));
        Number back = 0;
        size_t used = 0;
        EXPECT_EQ(&back, width.read(&back, form, size, binary, &used));
        EXPECT_EQ(size, used);
        EXPECT_EQ(value, back);
        if (width.read_file == nullptr) continue;
        vextest::writeFile(dir / "file", std::string(form, size) + "x");
        vex::UniqueFile file(fopen((dir / "file").c_str(), "r"));
        EXPECT_EQ(&back, width.read_file(&back, file.get(), binary, nullptr));
        EXPECT_EQ(value, back);
        EXPECT_EQ('x', getc(file.get()));
        EXPECT_EQ(size, width.write(form, size + 1, value, binary));
        EXPECT_EQ(binary ? '#' : '\0', form[size]);
    }
}

TEST(Integers, BothFormsArePinnedFitExactlyAndReadBack) {
    checkForms<uint8_t>(k8, 0, "00");
    checkForms<uint8_t>(k8, 255, "ff");
    checkForms<uint16_t>(k16, 258, "0102");
    checkForms<uint32_t>(k32, 16909060, "01020304");
    checkForms<uint32_t>(k32, UINT32_MAX, "ffffffff");
    checkForms<uint64_t>(k64, 0x0102030405060708, "0102030405060708");
    checkForms<uint64_t>(k64, UINT64_MAX, "ffffffffffffffff");
}

/// The line, or "", that a buffer one byte too short gives.
template <typename Number>
std::string shortBuffer(const Width<Number> &width, bool binary) {
    vextest::LogCapture log;
    char form[24] = "#";
    EXPECT_FAILS(ENOBUFS, 0u, width.write(form, width.size(200, binary) - 1, 200, binary));
    EXPECT_EQ(binary ? '#' : '\0', form[0]);
    return log.text();
}

TEST(Integers, ShortBuffersFailAndOnlySomeWidthsSaySo) {
    EXPECT_EQ("105 VexUint8Serialize: incompatible bufsize and value size", shortBuffer(k8, true));
    EXPECT_EQ("105 VexUint32Serialize: incompatible bufsize and value size", shortBuffer(k32, false));
    EXPECT_EQ("105 VexUint64Serialize: incompatible bufsize and value size", shortBuffer(k64, false));
    EXPECT_EQ("", shortBuffer(k8, false) + shortBuffer(k16, true) + shortBuffer(k32, true) + shortBuffer(k64, true));
}

/// The line that a text gives which is no value; the value must be 0 then and errno the line's code.
template <typename Number>
std::string badText(const Width<Number> &width, const std::string &text) {
    vextest::LogCapture log;
    Number value = 99;
    size_t used = 77;
    EXPECT_EQ(nullptr, width.read(&value, text.data(), text.size(), false, &used));
    EXPECT_EQ(77, value + static_cast<int>(used));
    EXPECT_EQ(std::stoi(log.lines().at(0)), errno);
    return log.lines()[0];
}

TEST(Integers, BadTextIsNamedAndGivesZero) {
    const std::string read8 = "VexUint8InitDeserialize: ", read64 = "VexUint64InitDeserialize: ",
                      large = "value is too large to be expressed as a uint8_t: ";
    EXPECT_EQ("34 " + read8 + large + "256", badText(k8, "256"));
    EXPECT_EQ("34 VexUint32InitDeserialize: " + large + "4294967296", badText(k32, "4294967296"));
    EXPECT_EQ("22 " + read64 + "had an error occur during vex_strtoull: Numerical result out of range",
        badText(k64, "18446744073709551616"));
    for (const char *text : {"-1", "+1", " 1", "x"})
        EXPECT_EQ("22 " + read64 + "expected ptr and _buf to be equal", badText(k64, text));
    EXPECT_EQ("22 VexUint16InitDeserialize: invalid binary value -- not tested", badText(k16, "1"));
    EXPECT_EQ("22 " + read8 + "invalid NULL buf or 0 buf size", badText(k8, ""));
    EXPECT_EQ("22 " + read64 + "invalid NULL buffer or empty buffer", badText(k64, ""));
    uint64_t number = 9;
    size_t used = 0;
    EXPECT_EQ(&number, VexUint64InitDeserialize(&number, (std::string(31, '0') + "7").data(), 32, false, &used));
    EXPECT_EQ(31u, used + number);  // the 7 is not looked at
}

TEST(Integers, EveryFailingReadOfAFileIsReported) {
    vextest::TempDir dir;
    vextest::writeFile(dir / "file", "");
    vex::UniqueFile file(fopen((dir / "file").c_str(), "r")), directory(fopen(dir.path().c_str(), "r"));
    const auto line = [](FILE *from, bool binary) {
        vextest::LogCapture log;
        uint64_t value = 99;
        EXPECT_EQ(nullptr, VexUint64InitFromFile(&value, from, binary, nullptr));
        EXPECT_EQ(0u, value);
        const std::string last = log.lines().back();
        EXPECT_EQ(std::stoi(last), errno);
        return last.substr(0, last.find(" (")) + last.substr(std::min(last.find("): "), last.size()));
    };
    EXPECT_EQ("61 VexUint64InitFromFile): unable to read file: No data available", line(file.get(), true));
    EXPECT_EQ("22 VexUint64InitDeserialize: invalid NULL buffer or empty buffer", line(file.get(), false));
    EXPECT_EQ("21 VexUint64InitFromFile): unable to read file: Is a directory", line(directory.get(), true));
    EXPECT_EQ("5 VexUint64InitFromFile): unable to read file: Input/output error", line(directory.get(), false));
    EXPECT_EQ("22 VexUint64InitFromFile: invalid NULL file", line(nullptr, true));
}

TEST(RawBytes, HexadecimalReadsBackAndNamesTheBadCharacter) {
    vextest::LogCapture log;
    char text[8] = "#######", bytes[4];
    EXPECT_EQ(4u, VexBufToSerialize(text, 4, "\x0f\xa0", 2));
    EXPECT_STREQ("0fa0###", text);
    EXPECT_EQ(4u, VexBufToSerialize(text, 5, "\x0f\xa0", 2));
    EXPECT_STREQ("0fa0", text);
    EXPECT_EQ(2u, VexBufToDeserialize(bytes, 2, "0FA0?", 5));
    EXPECT_EQ("\x0f\xa0", std::string(bytes, 2));
    EXPECT_EQ(0u, VexBufToSerialize(text, 3, "\x0f\xa0", 2));
    EXPECT_EQ(0u, VexBufToDeserialize(bytes, 4, "0g", 2));
    EXPECT_EQ(0u, VexBufToDeserialize(bytes, 4, "00g0", 4));
    EXPECT_THAT(log.lines(),
        ElementsAre("22 VexBufToSerialize: invalid NULL parameter or bufsize too small",
            "22 VexBufToDeserialize: c2 is a non-digit found", "22 VexBufToDeserialize: c1 is a non-digit found"));
}

}  // namespace
