#include "support/test.h"

namespace {

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
    TempDir dir;
    for (const bool binary : {true, false}) {
        SCOPED_TRACE(hex + (binary ? " binary" : " text"));
        char form[24];
        if (!binary) {
            EXPECT_EQ(std::to_string(value).size(), width.size(value, false));
            if (sizeof value == 2) continue;
        }
        memset(form, '#', sizeof form);
        const size_t size = width.size(value, binary);
        LogCapture log;
        EXPECT_FAILS(ENOBUFS, 0u, width.write(form, size - 1, value, binary));
        EXPECT_EQ(binary ? '#' : '\0', form[0]) << "text is cut to nothing";
        EXPECT_EQ(binary == (sizeof value == 1), !log.lines().empty()) << "only some widths say so";
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
        writeFile(dir / "file", std::string(form, size) + "x");
        vex::UniqueFile file(fopen((dir / "file").c_str(), "r"));
        errno = 0;
        EXPECT_EQ(&back, width.read_file(&back, file.get(), binary, nullptr));
        EXPECT_EQ(0, errno) << "a success leaves it alone";
        EXPECT_EQ(value, back);
        EXPECT_EQ('x', getc(file.get()));
        EXPECT_EQ(size, width.write(form, size + 1, value, binary));
        EXPECT_EQ(binary ? '#' : '\0', form[size]);
    }
}

using Integers = FolderTest;

TEST_F(Integers, BothFormsArePinnedFitExactlyAndReadBack) {
    checkForms<uint8_t>(k8, 255, "ff");
    checkForms<uint16_t>(k16, 258, "0102");
    checkForms<uint32_t>(k32, 16909060, "01020304");
    checkForms<uint32_t>(k32, UINT32_MAX, "ffffffff");
    checkForms<uint64_t>(k64, 0x0102030405060708, "0102030405060708");
    checkForms<uint64_t>(k64, UINT64_MAX, "ffffffffffffffff");
}

/// The line that a text gives which is no value; the value must be 0 then and errno the line's code.
template <typename Number>
std::string badText(const Width<Number> &width, const std::string &text) {
    LogCapture log;
    Number value = 99;
    size_t used = 77;
    EXPECT_EQ(nullptr, width.read(&value, text.data(), text.size(), false, &used));
    EXPECT_EQ(77, value + static_cast<int>(used));
    EXPECT_EQ(std::stoi(log.lines().at(0)), errno);
    return log.lines()[0];
}

TEST_F(Integers, BadTextIsNamedAndGivesZero) {
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

TEST_F(Integers, EveryFailingReadOfAFileIsReported) {
    vex::UniqueFile empty(fopen("/dev/null", "r")), directory(fopen(dir.path().c_str(), "r"));
    const std::string unread = "VexUint64InitFromFile \\([0-9]+\\): unable to read file: ";
    const std::tuple<std::string, FILE *, bool> rows[] = {{"61 " + unread + "No data available", empty.get(), true},
        {"22 VexUint64InitDeserialize: invalid NULL buffer or empty buffer", empty.get(), false},
        {"21 " + unread + "Is a directory", directory.get(), true},
        {"5 " + unread + "Input/output error", directory.get(), false},
        {"22 VexUint64InitFromFile: invalid NULL file", nullptr, true}};
    for (const auto &[line, file, binary] : rows) {
        uint64_t value = 99;
        EXPECT_FAILS(std::stoi(line), nullptr, VexUint64InitFromFile(&value, file, binary, nullptr));
        EXPECT_EQ(0u, value);
        EXPECT_THAT(log.lines().back(), MatchesRegex(line));
    }
}

TEST(RawBytes, HexadecimalReadsBackAndNamesTheBadCharacter) {
    char text[8] = "#######", bytes[4];
    for (const size_t room : {4, 5}) EXPECT_EQ(4u, VexBufToSerialize(text, room, "\x0f\xa0", 2));
    EXPECT_EQ(std::string("0fa0\0##", 7), std::string(text, 7));
    EXPECT_EQ(2u, VexBufToDeserialize(bytes, 2, "0FA0?", 5));
    EXPECT_EQ("\x0f\xa0", std::string(bytes, 2));
    EXPECT_FAILS_WITH("22 VexBufToSerialize: invalid NULL parameter or bufsize too small", 0u,
        VexBufToSerialize(text, 3, "\x0f\xa0", 2));
    EXPECT_FAILS_WITH("22 VexBufToDeserialize: c2 is a non-digit found", 0u, VexBufToDeserialize(bytes, 4, "0g", 2));
}

}  // namespace
