// Networks in texts, by both ways of reading them, against an oracle that counts in 32-bit numbers.
#include <arpa/inet.h>

#include "support/test.h"

static NetInterface interfaceOf(const std::string &address) {
    NetInterface one{};
    strncpy(one.address, address.c_str(), sizeof one.address - 1);
    return one;
}

static std::string dotted(uint32_t host_order) {
    in_addr address{htonl(host_order)};
    char text[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, &address, text, sizeof text);
}

TEST(CheckIPRange, TellsWhatIsWrongAndWhere) {
    const auto text = [](const std::string &cell) { return cell == "NULL" ? nullptr : cell.c_str(); };
    for (const auto &row :
        table(4,
            "NULL|junk|1|| , ,|1.2.3.4|0||10,junk|10.0.0.1|1||10/8,10.1/16,1.2.3.4|NULL|1||"
            "10.1, 192.168.1.7/32,172.16/12|172.31.255.255|1|"
            "68 : Bad match: 172.31.255.255 outside 10.1.0.0/255.255.0.0\n"
            "68 : Bad match: 172.31.255.255 outside 192.168.1.7/255.255.255.255|"
            "10|1.2.3|0|64 : incomplete IP address: 1.2.3|10|1.2.3.256|0|63 : bad IP address: 1.2.3.256|"
            "10|1.2.3.4.5|0|63 : bad IP address: 1.2.3.4.5|10|1.2.3.4 |0|63 : bad IP address: 1.2.3.4 |"
            "x|NULL|0|64 : incomplete IP address: x|10.x|NULL|0|63 : bad IP address: 10.x|"
            "10/8x|NULL|0|63 : bad IP address: 10/8x|"
            "10/-1|NULL|0|65 : incorrect netmask value, must be between 0 and 32. Actual value: 10/-1|"
            "10/99999999999|NULL|0|65 : incorrect netmask value, must be between 0 and 32. Actual value: 10/2147483647|"
            "10.1/8|NULL|0|67 : Incorrect IP range (field 2 must be a multiple of 256). Actual value: 10.1/8|")) {
        SCOPED_TRACE(row[0] + " " + row[1]);
        std::string expected = row[3];
        for (size_t at = 0; (at = expected.find(" : ", at)) != expected.npos; ++at)
            expected.insert(at + 1, "NetCheckIPRange");
        for (const bool verbose : {true, false}) {
            LogCapture log;
            errno = 0;
            EXPECT_EQ(std::stoi(row[2]), NetCheckIPRange(text(row[0]), text(row[1]), verbose));
            EXPECT_EQ(row[2] == "0" && !expected.empty() ? EINVAL : 0, errno);
            EXPECT_EQ(verbose ? expected : "", log.text());
        }
    }
}

TEST(IpRange, FailsWithItsOwnLineAndThenItsCallers) {
    // what "!" and "~" stand for
    const std::string invalid = "\n22 getmasklen: invalid mask\n22 iprange_create: IP address format is invalid.";
    const std::string convert = "22 iprange_create : could not convert ip address to address";
    const std::tuple<bool, const char *, int, std::string> kRows[] = {
        {false, "", EINVAL, "22 iprange_create: invalid NULL parameter"},
        {false, "10.0.0.0", EINVAL, "22 getmasklen: invalid parameter: does not contain '/'!"},
        {false, "10.0.0.0/-1", EINVAL, "22 getmasklen: mask not 0-32 (18446744073709551615)!"},
        {false, "10.0.0.0/-18446744073709551615", EINVAL, "22 getmasklen: mask not 0-32 (1)!"},
        {false, "10.0.0.0/x", EINVAL, "22 getmasklen: no digit found!"},
        {false, "1.2.3.4/18446744073709551616", ERANGE,
            "34 getmasklen: invalid input: 18446744073709551616\n34 iprange_create: IP address format is invalid."},
        {false, "10.0.0.0 /8", EINVAL, "~"},
        {true, "10.0.0.0/8, ,", EINVAL, "~\n22 iprange_list_create: get ip range address failed Invalid argument"},
        {true, "1.2.3.4,1234567890123456", EINVAL,
            "~\n22 iprange_list_create: get ip range address failed Invalid argument"},
        {true, "1.2.3.4, 12345678901234567 ", EINVAL,
            "69 iprange_list_create: 12345678901234567: IP Range format error: Invalid argument"},
    };
    for (const auto &[list, text, error, line] : kRows) {
        SCOPED_TRACE(text);
        std::string expected = line;
        if (expected.back() == '!') expected.replace(expected.size() - 1, 1, invalid);
        if (expected.front() == '~') expected.replace(0, 1, convert);
        LogCapture log;
        const void *const made = list ? static_cast<void *>(iprange_list_create(text)) : iprange_create(text);
        EXPECT_TRUE(made == nullptr && errno == error) << errno;
        EXPECT_EQ(expected, log.text());
    }
    iprange *const range = iprange_create(" \t10.1.2.3/8 and more");
    ASSERT_NE(nullptr, range);
    EXPECT_EQ(0xff000000u, range->mask);
    EXPECT_STREQ("10.0.0.0", range->address);
    EXPECT_EQ(inet_addr("10.0.0.0"), range->network);
    iprange_destroy(range);
    vexList *const none = iprange_list_create(",");
    const NetInterface one = interfaceOf("10.0.0.1");
    EXPECT_TRUE(none != nullptr && iprange_list_lookup(none, &one) == -1);
    iprange_list_destroy(none);
}

TEST(Ranges, AgreeWithAnOracleOnGeneratedTexts) {
    std::mt19937 engine(static_cast<unsigned>(testSeed()));
    const auto random = [&] { return static_cast<uint32_t>(engine()); };
    for (int round = 0; round < 2000; ++round) {
        std::string text;
        const uint32_t address = random();
        bool inside = false;
        for (unsigned n = random() % 5 + 1; n > 0; --n) {
            const unsigned length = random() % 33;
            const uint32_t mask = length == 0 ? 0 : ~uint32_t{0} << (32 - length);
            // near the address, so that half of them hold it
            const uint32_t network = (address ^ (random() % 2 == 0 ? 0 : 1u << random() % 32)) & mask;
            inside = inside || (address & mask) == network;
            text += (text.empty() ? "" : random() % 2 == 0 ? "," : " , ") + dotted(network);
            if (length < 32 || random() % 2 == 0) text += "/" + std::to_string(length);
        }
        SCOPED_TRACE(text + " " + dotted(address));
        ASSERT_EQ(inside ? 1 : 0, NetCheckIPRange(text.c_str(), dotted(address).c_str(), 0));
        text.erase(std::remove(text.begin(), text.end(), ' '), text.end());
        vexList *const list = iprange_list_create(text.c_str());
        const NetInterface one = interfaceOf(dotted(address));
        ASSERT_EQ(inside ? 0 : -1, iprange_list_lookup(list, &one));
        iprange_list_destroy(list);
    }
}
