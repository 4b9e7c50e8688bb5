#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sched.h>
#include <string.h>
#include <sys/un.h>

#include <vex/file.h>

#include "net/fakes.h"
#include "support/failures.h"
#include "support/faults.h"
#include "support/temp_dir.h"

using testing::HasSubstr;
using vextest::Fakes;
using vextest::LogCapture;

namespace {

// no address: the real resolver answers it without asking anybody
constexpr char kHost[] = "192.0.2.7";

std::string textOf(const addrinfo *list) {
    std::string result;
    for (; list != nullptr; list = list->ai_next) {
        char text[46] = "relay";
        if (list->ai_addr != nullptr) get_ip_str(list->ai_addr, text, sizeof text);
        result += std::string(text) + (list->ai_socktype == SOCK_STREAM ? " " : " not stream ");
    }
    return result;
}

TEST(GetAddrInfo, RetriesABusyResolverTwiceAndNothingElse) {
    constexpr int kAgain = EAI_AGAIN;
    static const struct {
        std::deque<int> answers;
        int seconds_each, result, error;
        double waited;
        size_t left;
        const char *log;
    } kRows[] = {
        {{0}, 0, 0, 0, 0, 0, ""},
        {{kAgain, EAI_SYSTEM, 0}, 0, 0, 0, 2, 0, "EAI_AGAIN try 1: A,EAI_AGAIN try 2: B,"},
        {{kAgain, kAgain, kAgain, 0}, 0, kAgain, EAGAIN, 2, 1, "EAI_AGAIN try 1: A,EAI_AGAIN try 2: A,"},
        {{EAI_SYSTEM, kAgain, EAI_SYSTEM}, 0, EAI_SYSTEM, EAGAIN, 2, 0, "EAI_AGAIN try 1: B,EAI_AGAIN try 2: A,"},
        {{EAI_NONAME, 0}, 0, EAI_NONAME, ENOENT, 0, 1, ""},
        {{kAgain, EAI_FAIL, 0}, 0, EAI_FAIL, ENOENT, 1, 1, "EAI_AGAIN try 1: A,"},
        {{kAgain, kAgain, 0}, 15, kAgain, EAGAIN, 31, 1, "EAI_AGAIN try 1: A,EAI_AGAIN took too long: A,"},
        {{kAgain, 0}, 30, kAgain, EAGAIN, 30, 1, "EAI_AGAIN took too long: A,"},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(&row - kRows);
        LogCapture log;
        Fakes fakes;
        fakes.answers = row.answers;
        fakes.seconds_per_answer = row.seconds_each;
        addrinfo *list = nullptr;
        EXPECT_EQ(row.result, zq_getaddrinfo(kHost, "80", nullptr, &list));
        EXPECT_TRUE(row.result == 0 || row.error == errno) << errno;
        EXPECT_EQ(row.result == 0 ? "192.0.2.7 " : "", textOf(list));
        EXPECT_NEAR(row.waited, fakes.clock, 1);
        EXPECT_EQ(row.left, fakes.answers.size());
        std::string lines;
        for (std::string line : log.lines(VEX_LOG_ERR)) {
            for (const auto &[from, to] : std::initializer_list<std::pair<std::string, std::string>>{
                     {"zq_getaddrinfo: ", ""}, {"getaddrinfo EAI", "EAI"}, {" for host 192.0.2.7 using service 80", ""},
                     {"Temporary failure in name resolution", "A"}, {"Resource temporarily unavailable", "B"}})
                if (const size_t at = line.find(from); at != line.npos) line.replace(at, from.size(), to);
            lines += line + ",";
        }
        EXPECT_EQ(row.log, lines);
        zq_freeaddrinfo(list);
    }
}

TEST(GetAddrInfo, GivesDeepCopiesAndLeavesTheHintsAlone) {
    addrinfo hints{}, *list = nullptr, *copy = nullptr;
    hints.ai_flags = AI_CANONNAME | AI_PASSIVE;
    hints.ai_socktype = SOCK_DGRAM;
    const addrinfo before = hints;
    for (const auto &[host, text] : {std::pair("::1", "::1 "), {"192.0.2.7", "192.0.2.7 "}}) {
        ASSERT_EQ(0, zq_getaddrinfo(host, "80", &hints, &list));
        EXPECT_EQ(0, memcmp(&before, &hints, sizeof hints));
        ASSERT_EQ(0, zq_copyaddrinfo(list, &copy));
        EXPECT_STREQ(host, copy->ai_canonname);
        EXPECT_EQ(list->ai_addrlen, copy->ai_addrlen);
        zq_freeaddrinfo(list);
        EXPECT_EQ(text, textOf(copy));
        zq_freeaddrinfo(copy);
    }
    const auto get = [&](const char *host, const char *service) {
        return [=, &list] { return long{zq_getaddrinfo(host, service, nullptr, &list)}; };
    };
    vextest::expectFailures({
        {"22 zq_getaddrinfo: invalid NULL parameter", EINVAL, EAI_BADFLAGS, [] { return zq_getaddrinfo("a", "1", nullptr, nullptr); }},
        {"22 zq_copyaddrinfo: invalid NULL parameter", EINVAL, EAI_BADFLAGS, [&] { return zq_copyaddrinfo(nullptr, &list); }},
        {"22 zq_getaddrinfo4relay: invalid NULL parameter", EINVAL, EAI_BADFLAGS, [&] { return zq_getaddrinfo4relay("a", "1", "r", nullptr, &list); }},
        {"22 zq_getaddrinfo4relay: a host or port is longer than 255 bytes", EINVAL, EAI_BADFLAGS,
         [&] { return zq_getaddrinfo4relay(std::string(256, 'a').c_str(), "1", "r", "2", &list); }},
        {"", ENOENT, EAI_NONAME, get(nullptr, nullptr)},
        {"", ENOENT, EAI_NONAME, get(kHost, "http")},
    });
}

TEST(GetAddrInfo, LosesNothingWithoutMemory) {
    addrinfo *relay, *plain;
    ASSERT_EQ(0, zq_getaddrinfo4relay("host", "1", "relay", "2", &relay));
    ASSERT_EQ(0, zq_getaddrinfo("192.0.2.7", "80", nullptr, &plain));
    const auto runs = vextest::forEachFault({"malloc", "calloc", "strdup"}, ENOMEM, [&](const vextest::FaultScope &fault) {
        LogCapture log;
        addrinfo *list = nullptr, *made = nullptr;
        const bool good = zq_copyaddrinfo(relay, &list) == 0 && zq_getaddrinfo4relay("h", "1", "r", "2", &made) == 0;
        EXPECT_EQ(good, !fault.fired());
        EXPECT_TRUE(good || errno == ENOMEM);
        EXPECT_EQ(good ? 0u : 1u, log.lines().size());
        zq_freeaddrinfo(list), zq_freeaddrinfo(made);
    });
    EXPECT_EQ(6u, runs);
    zq_freeaddrinfo(relay), zq_freeaddrinfo(plain);
}

TEST(Relay, IsInForceWithBothKeysAndReadAgainAfterTwoMinutes) {
    const std::string host = "NAT_VKPROXY_HOST=", port = "NAT_VKPROXY_PORT=";
    const std::string missed = "get_nat_vkproxy: failed to get NAT_VKPROXY_HOST and NAT_VKPROXY_PORT, missed one of them.";
    const struct {
        std::string content, found, log;
    } rows[] = {
        {host + "r1\n" + port + "1080\n", "r1 1080", ""},
        {"junk\n\t NAT_VKPROXY_HOST\t=  r2 \r\nNAT_VKPROXY_PORT = 1 \n" + port + "2", "r2 2", ""},
        {host + "r\n", "", missed},
        {port + "1\n" + host + " \n", "", missed},
        {host + std::string(256, 'a') + "\n" + port + "1\n", "", missed},
        {"#" + host + "r\nX" + port + "1\n" + std::string(5000, 'x') + host + "r\n", "", ""},
        {std::string(2 << 20, 'x') + "\n" + host + "r\n" + port + "1\n", "", ""},
        {"", "", ""},
    };
    const bool allowed = vextest::inNamespace(CLONE_NEWNS, [&] {
        Fakes fakes;
        fakes.clock = 1000;
        char found_host[256], found_port[256];
        const auto ask = [&](size_t size) { return get_nat_vkproxy(found_host, size, found_port, 256); };
        {
            LogCapture log;
            EXPECT_EQ(0, ask(256) + ask(256));
            EXPECT_EQ("2 get_nat_vkproxy: file (/usr/lumen/vaultkeep/hx.conf) open error ", log.text());
        }
        CreateTreeA("/usr/lumen/vaultkeep", 0);
        for (const auto &row : rows) {
            SCOPED_TRACE(row.content.substr(0, 60));
            vextest::writeFile("/usr/lumen/vaultkeep/hx.conf", row.content);
            fakes.clock += 121;
            LogCapture log;
            const int result = ask(256);
            EXPECT_EQ(row.found, result == 1 ? std::string(found_host) + " " + found_port : "");
            EXPECT_EQ(row.log, log.text());
        }
        fakes.clock += 121;
        vextest::writeFile("/usr/lumen/vaultkeep/hx.conf", rows[0].content);
        EXPECT_EQ(1, ask(256));
        remove("/usr/lumen/vaultkeep/hx.conf");
        fakes.clock += 117;
        LogCapture log(LogCapture::kAll);
        addrinfo *list = nullptr;
        EXPECT_EQ(0, zq_getaddrinfo("dest", "443", nullptr, &list));
        EXPECT_EQ("relay ", textOf(list));
        EXPECT_THAT(log.lines(VEX_LOG_TRACE),
                    testing::ElementsAre("get_nat_vkproxy: Call to this function is within 2 mins, it is a relay env!",
                                         "zq_getaddrinfo4relay: getaddrinfo with desthost dest, destport 443, rlinkhost r1, rlinkport 1080"));
        zq_freeaddrinfo(list);
        EXPECT_EQ(-1, ask(2));
        // what is asked about this machine itself takes no detour
        EXPECT_EQ(1, NetSameHostByName("127.0.0.1", "127.0.0.1"));
        fakes.clock += 4;
        EXPECT_EQ(0, ask(256));
    });
    if (!allowed) GTEST_SKIP() << "no right to a mount namespace";
}

TEST(Hosts, AreLocalOrTheSameByTheirAddresses) {
    EXPECT_EQ(1, NetIsHostLocalByName("127.0.0.1"));
    EXPECT_EQ(0, NetIsHostLocalByName("192.0.2.1"));
    EXPECT_EQ(1, NetSameHostByName("192.0.2.1", "192.0.2.1"));
    EXPECT_EQ(0, NetSameHostByName("192.0.2.1", "192.0.2.2"));
    EXPECT_EQ(1, NetSameHostByName("127.0.0.1", "127.0.0.2"));
    EXPECT_EQ(0, NetSameHostByName("192.0.2.1", "::ffff:192.0.2.1"));
    char text[46];
    sockaddr_un local{};
    local.sun_family = AF_UNIX;
    const auto *const other = reinterpret_cast<const sockaddr *>(&local);
    EXPECT_TRUE(get_ip_str(other, text, sizeof text) == nullptr && errno == EAFNOSUPPORT);
    EXPECT_STREQ("Unknown AF", text);
    const addrinfo relay{};
    EXPECT_EQ(0, NetIsHostLocalByAddr(&relay) + NetSameHostByAddr(&relay, &relay) + ip_compare(other, other));
    vextest::expectFailures({
        {"22 NetSameHostByName: name1 is NULL", EINVAL, 0, [] { return NetSameHostByName(nullptr, ""); }},
        {"22 NetSameHostByName: name1 is empty", EINVAL, 0, [] { return NetSameHostByName("", nullptr); }},
        {"22 NetSameHostByName: name2 is NULL", EINVAL, 0, [] { return NetSameHostByName("a", nullptr); }},
        {"22 NetSameHostByName: name2 is empty", EINVAL, 0, [] { return NetSameHostByName("a", ""); }},
    });
}

}  // namespace
