#include <arpa/inet.h>
#include <netinet/tcp.h>

#include "net/fakes.h"
#include "support/peer.h"
#include "support/test.h"

namespace {

struct List {
    List() = default;
    List(const std::string &host, const std::string &port) {
        EXPECT_EQ(0, zq_getaddrinfo(host.c_str(), port.c_str(), nullptr, &head));
    }
    ~List() { zq_freeaddrinfo(head); }
    std::string text() const {
        char buffer[46] = "relay";
        if (head != nullptr && head->ai_addr != nullptr) get_ip_str(head->ai_addr, buffer, sizeof buffer);
        return head == nullptr ? "" : buffer;
    }
    addrinfo *head = nullptr;
};

std::string run(const std::string &command) {
    const char *const argv[] = {"/bin/sh", "-c", command.c_str(), nullptr};
    int status = -1;
    char output[4096] = "";
    EXPECT_EQ(0, VexSpawn(argv, &status, output, sizeof output, 20));
    return output;
}

TEST(Resolve, RetriesABusyResolverTwiceAndNothingElse) {
    constexpr int kAgain = EAI_AGAIN;
    const std::string tail = " for host 192.0.2.7 using service 80",
                      busy = "zq_getaddrinfo: getaddrinfo EAI_AGAIN" + tail;
    const std::string temporary = ": Temporary failure in name resolution";
    const std::tuple<std::deque<int>, int, int, int, size_t, std::string> kRows[] = {
        // the resolver's answers, seconds for each; errno, seconds waited, lines, the last of them
        {{kAgain, EAI_SYSTEM, 0}, 0, 0, 2, 2, busy + " try 2: Resource temporarily unavailable"},
        {{kAgain, kAgain, kAgain}, 0, EAGAIN, 2, 2, busy + " try 2" + temporary},
        {{EAI_NONAME}, 0, ENOENT, 0, 0, ""},
        {{kAgain, EAI_FAIL}, 0, ENOENT, 1, 1, busy + " try 1" + temporary},
        {{kAgain, kAgain}, 15, EAGAIN, 31, 2, "zq_getaddrinfo: EAI_AGAIN took too long" + tail + temporary},
    };
    for (const auto &[answers, seconds, error, waited, count, last] : kRows) {
        SCOPED_TRACE(last);
        LogCapture log;
        Fakes fakes;
        fakes.answers = answers;
        fakes.seconds_per_answer = seconds;
        List list;
        errno = 0;
        EXPECT_EQ(answers.back(), zq_getaddrinfo("192.0.2.7", "80", nullptr, &list.head));
        EXPECT_TRUE(error == 0 ? list.text() == "192.0.2.7" : errno == error && list.head == nullptr) << errno;
        EXPECT_NEAR(waited, fakes.clock, 1);
        const auto lines = log.lines(VEX_LOG_ERR);
        EXPECT_EQ(count, lines.size());
        EXPECT_EQ(last, lines.empty() ? "" : lines.back());
    }
}

TEST(Resolve, GivesDeepCopiesAndLosesNothingWithoutMemory) {
    addrinfo hints{};
    hints.ai_flags = AI_CANONNAME;
    hints.ai_socktype = SOCK_DGRAM;
    const addrinfo before = hints;
    List relay, list;
    ASSERT_EQ(0, zq_getaddrinfo("::1", "80", &hints, &list.head));
    EXPECT_EQ(0, memcmp(&before, &hints, sizeof hints));
    ASSERT_EQ(0, zq_getaddrinfo4relay("host", "1", "relay", "2", &relay.head));
    EXPECT_EQ(5u, forEachFault({"malloc", "calloc", "strdup"}, ENOMEM, [&](const FaultScope &fault) {
        LogCapture log;
        List a, b;
        const bool good = zq_copyaddrinfo(list.head, &a.head) == 0 && zq_copyaddrinfo(relay.head, &b.head) == 0;
        EXPECT_EQ(good, !fault.fired());
        EXPECT_TRUE(good ? a.text() == "::1" && strcmp(a.head->ai_canonname, "::1") == 0 && b.text() == "relay"
                         : errno == ENOMEM && log.lines().size() == 1);
    }));
    addrinfo *out;
    EXPECT_EQ(EAI_NONAME, zq_getaddrinfo("192.0.2.7", "http", nullptr, &out));
    EXPECT_EQ(EAI_BADFLAGS, zq_getaddrinfo4relay(std::string(256, 'a').c_str(), "1", "r", "2", &out));
}

TEST(Relay, IsInForceWithBothKeysAndReadAgainAfterTwoMinutes) {
    const std::string host = "NAT_VKPROXY_HOST=", port = "NAT_VKPROXY_PORT=", file = "/usr/lumen/vaultkeep/hx.conf";
    const std::string missed =
        "get_nat_vkproxy: failed to get NAT_VKPROXY_HOST and NAT_VKPROXY_PORT, missed one of them.";
    const std::array<std::string, 3> rows[] = {
        {"junk\n\t NAT_VKPROXY_HOST\t=  r2 \r\nNAT_VKPROXY_PORT = 1 \n" + port + "2", "r2 2", ""},
        {port + "1\n" + host + " \n", "", missed},
        {host + std::string(256, 'a') + "\n" + port + "1\n", "", missed},
        {host + std::string(1024, ' ') + "r\n" + port + "1\n", "", missed},
        {std::string(2 << 20, 'x') + "\n" + host + "r\n" + port + "1\n", "", ""},
        {host + "r1\n" + port + "1080\n", "r1 1080", ""},
    };
    const bool allowed = inNamespace(CLONE_NEWNS, [&] {
        Fakes fakes;
        fakes.clock = 1000;
        char found_host[256], found_port[256];
        const auto ask = [&](size_t size) { return get_nat_vkproxy(found_host, size, found_port, 256); };
        LogCapture log;
        EXPECT_EQ(0, ask(256) + ask(256));
        EXPECT_EQ("2 get_nat_vkproxy: file (/usr/lumen/vaultkeep/hx.conf) open error ", log.take());
        CreateTreeA("/usr/lumen/vaultkeep", 0);
        for (const auto &[content, found, line] : rows) {
            SCOPED_TRACE(content.substr(0, 60));
            writeFile(file, content);
            fakes.clock += 121;
            const int result = ask(256);
            EXPECT_EQ(found, result == 1 ? std::string(found_host) + " " + found_port : "");
            EXPECT_EQ(line, log.take());
        }
        remove(file.c_str());
        fakes.clock += 117;
        EXPECT_EQ("relay", List("dest", "443").text());
        EXPECT_EQ(-1, ask(2));
        // what is asked about this machine takes no detour
        EXPECT_EQ(0, NetIsHostLocalByName("192.0.2.1") + NetSameHostByName("192.0.2.1", "::ffff:192.0.2.1") +
                         NetSameHostByName("", "a"));
        EXPECT_EQ(3, NetIsHostLocalByName("127.0.0.1") + NetSameHostByName("192.0.2.1", "192.0.2.1") +
                         NetSameHostByName("127.0.0.1", "127.0.0.2"));
        fakes.clock += 4;
        EXPECT_EQ(0, ask(256));
    });
    if (!allowed) GTEST_SKIP() << "no right to a mount namespace";
}

int optionOf(int fd, int option) {
    int value = 0;
    socklen_t size = sizeof value;
    getsockopt(fd, IPPROTO_TCP, option, &value, &size);
    return value;
}

TEST(Connect, ReachesTheFirstAddressThatAnswersFromTheLocalOneThatWasNamed) {
    const Peer peer([](int socket) {
        sockaddr_in from{};
        socklen_t size = sizeof from;
        getpeername(socket, reinterpret_cast<sockaddr *>(&from), &size);
        NetSend(socket, "%s", inet_ntoa(from.sin_addr));
        char block[4096];
        for (ssize_t n; (n = recv(socket, block, sizeof block, 0)) > 0;)
            write_n_bytes(socket, block, static_cast<size_t>(n));
    });
    const List list("127.0.0.1", freePort()), second("127.0.0.1", peer.port);
    ASSERT_EQ(0, zq_copyaddrinfo(second.head, &list.head->ai_next));
    NetConnectParams parameters{};
    parameters.options = NET_OPT_KEEPALIVE;
    parameters.local_interface = "127.0.0.9";
    for (const bool interrupted : {false, true}) {
        Fakes fakes;
        fakes.interrupt_connect = interrupted;
        LogCapture log(LogCapture::kAll);
        const int fd = NetConnectByAddr(list.head, &parameters);
        const auto traces = log.lines(VEX_LOG_TRACE);
        EXPECT_THAT(
            traces, Contains("NetConnectByAddr: Unable to connect to interface 127.0.0.1: Connection refused (111)"));
        EXPECT_EQ(
            "NetConnectByAddr: Connected to remote interface 127.0.0.1 using local interface 127.0.0.9", traces.back());
        EXPECT_EQ(2u, log.lines(VEX_LOG_INFO).size());  // bound twice
        EXPECT_EQ("1 210 4", std::to_string(optionOf(fd, TCP_NODELAY)) + " " +
                                 std::to_string(optionOf(fd, TCP_KEEPIDLE)) + " " +
                                 std::to_string(optionOf(fd, TCP_SYNCNT)));
        char line[32];
        EXPECT_EQ(9, NetReadReply(fd, line, sizeof line));
        EXPECT_STREQ("127.0.0.9", line);
        std::string sent(300000, 'x'), got(sent.size(), '\0');
        std::thread sender([&] { EXPECT_EQ(300000, write_n_bytes(fd, sent.data(), sent.size())); });
        EXPECT_EQ(300000, read_n_bytes(fd, got.data(), got.size()));
        sender.join();
        EXPECT_TRUE(sent == got);
        shutdown(fd, SHUT_WR);
        errno = 0;
        EXPECT_FAILS(ECONNRESET, 0, read_n_bytes(fd, line, 1));
        EXPECT_EQ("", log.text());
        close(fd);
    }
}

TEST(Connect, TellsOnceWhyItFailed) {
    const std::string port = freePort();
    const List list("127.0.0.1", port);
    NetConnectParams fatal{}, local{};
    fatal.fatal = 1;
    local.local_interface = "192.0.2.1";
    const int before = openDescriptors();
    EXPECT_FAILS_WITH("111 NetConnectByAddr: Failed to connect to host: Connection refused (111)", -1,
        NetConnectByAddr(list.head, nullptr));
    EXPECT_FAILS_WITH(
        "99 NetConnectByAddr: Could not bind to local 192.0.2.1: bind failed (Cannot assign requested address)\n"
        "99 NetConnectByAddr: Failed to connect to host: Cannot assign requested address (99)",
        -1, NetConnectByAddr(list.head, &local));
    EXPECT_EQ(before, openDescriptors());
    LogCapture log;
    EXPECT_EQ(-1, NetConnectByAddr(list.head, &fatal));
    char stored[2400];
    vexGetFatalError(stored, sizeof stored);
    EXPECT_EQ(" NetConnectByAddr: Failed to connect to mgrd on port " + port +
                  " using the following interface(s): [ 127.0.0.1  ] " +
                  "(Connection refused) Ensure storage server services are running and operational.  Q-318-92",
        stored);
    vexClearFatalError();
}

TEST(Relay, IsTakenAtItsWordByteForByte) {
    const std::string good("\5\0\5\0\0\3\4host\1\273", 13);  // method, then the destination's name and port
    std::vector<std::tuple<std::string, std::string, int, size_t>> rows = {
        {good + "application\n", "", 0, 99},
        {good + "application\n", "", 0, 1},
        {{"\4\0", 2}, "method response: read unexpected version value 4", EPROTO, 9},
        {"\5\xff", "method response: read unexpected METHOD value FF", EPROTO, 9},
        {{"\5\0\5\1\0\3", 6}, "dest response: connection is refused!", ECONNREFUSED, 9},
        {{"\5\0\5\0\0\1\0\0\0\0\0\0", 12}, "dest response: not the hostname type!", EPROTO, 99},
        {{"\5\0\5\0\0\3\0", 7}, "dest response: length should be positive!", EPROTO, 9},
    };
    for (size_t n = 0; n < good.size(); ++n) {
        const char *const what = n < 2    ? "method response: read"
                                 : n < 6  ? "dest response: read header"
                                 : n < 7  ? "dest response: read length"
                                 : n < 11 ? "dest response: read hostname"
                                          : "dest response: read port";
        rows.push_back({good.substr(0, n), std::string(what) + " failed!", ECONNRESET, 9});
    }
    for (const auto &[answer, text, error, step] : rows) {
        SCOPED_TRACE(PrintToString(answer));
        std::string asked(14, '\0');
        const Peer relay([&](int socket) {
            read_n_bytes(socket, asked.data(), 3);
            write_n_bytes(socket, answer.data(), std::min<size_t>(2, answer.size()));
            if (answer.compare(0, 2, good, 0, 2) == 0) read_n_bytes(socket, &asked[3], 11);
            for (size_t at = 2; at < answer.size(); at += step)
                write_n_bytes(socket, &answer[at], std::min(step, answer.size() - at));
            shutdown(socket, SHUT_WR);
            for (char rest; recv(socket, &rest, 1, 0) > 0;) {}
        });
        List list;
        ASSERT_EQ(0, zq_getaddrinfo4relay("dest", "443", "127.0.0.1", relay.port.c_str(), &list.head));
        LogCapture log;
        const int fd = NetConnectByAddr(list.head, nullptr);
        EXPECT_TRUE(fd >= 0 ? error == 0 : error == errno) << errno;
        EXPECT_EQ(fd >= 0 ? "" : std::to_string(error) + " NetConnectByAddr4Relay: " + text, log.text());
        if (fd < 0) continue;
        EXPECT_EQ(std::string("\5\1\0\5\1\0\3\4dest\1\273", 14), asked);
        char line[32];
        EXPECT_EQ(11, NetReadReply(fd, line, sizeof line));  // what follows the answer is still there
        close(fd);
    }
}

TEST(Relay, ThatStallsOrLiesOrIsNotThereIsGivenUp) {
    const Peer relay([](int socket) {
        for (char c; recv(socket, &c, 1, 0) > 0;) {}
    });
    const auto connect = [](const char *host, const std::string &port, const std::string &relay_port) {
        List list;
        EXPECT_EQ(0, zq_getaddrinfo4relay(host, port.c_str(), "127.0.0.1", relay_port.c_str(), &list.head));
        return NetConnectByAddr4Relay(list.head, nullptr);
    };
    LogCapture log;
    {
        Fakes fakes;
        fakes.expired_polls = 1;
        const std::string who = "NetConnectByAddr4Relay: ";
        EXPECT_FAILS_WITH("110 " + who + "method response: read failed!", -1, connect("d", "1", relay.port));
        EXPECT_FAILS_WITH("22 " + who + "Invalid destination  port 1", -1, connect("", "1", "1"));
        EXPECT_FAILS_WITH("22 " + who + "Invalid destination d port 65536", -1, connect("d", "65536", "1"));
        EXPECT_FAILS_LOGGING("9 " + who + "error on getaddrinfo with 127.0.0.1 and no-port, returns -8", EINVAL, -1,
            connect("d", "1", "no-port"));
        EXPECT_THAT(fakes.polls, ElementsAre(120000));
    }
    const std::string port = freePort();
    EXPECT_EQ(-1, connect("d", "1", port));
    EXPECT_THAT(log.text(), MatchesRegex("111 NetConnectByAddr4Relay: error on connect socket [0-9]+, returns -1"));
    if (access("/usr/bin/microsocks", X_OK) != 0) GTEST_SKIP() << "microsocks is not installed";
    const Program real("microsocks -i 127.0.0.1 -p " + port, port);
    EXPECT_FAILS_WITH(
        "71 NetConnectByAddr4Relay: dest response: not the hostname type!", -1, connect("127.0.0.1", relay.port, port));
}

TEST(Listen, ServesBothFamiliesByOneSocketAndNamesItsPeers) {
    addrinfo hints{};
    hints.ai_family = AF_INET6;
    int fd = -1;
    if (NetBindAndListen(nullptr, 0, &hints, &fd) != 0) GTEST_SKIP() << "no IPv6 on this machine";
    Fakes fakes;
    NetSetDnsCache(true, 60);
    const auto meet = [&](const char *address, int levels) {
        const List list(address, std::to_string(portOf(fd)));
        const int mine = NetConnectByAddr(list.head, nullptr);
        LogCapture log(LogCapture::kAll);
        char host[64], ip[46];
        unsigned port = 0;
        const int theirs = NetAccept(fd, host, sizeof host, ip, sizeof ip, &port);
        EXPECT_TRUE(portOf(mine) == port && fcntl(theirs, F_GETFD) == FD_CLOEXEC);
        close(mine), close(theirs);
        std::string lines;
        for (const auto &line : log.lines(levels)) lines += "|" + line.substr(line.find(' ') + 1);
        return std::string(ip) + " " + host + lines;
    };
    EXPECT_EQ("127.0.0.1 127.0.0.1|NetGetPeerName: could not determine the hostname for 127.0.0.1 by DNS",
        meet("127.0.0.1", VEX_LOG_WARN));
    fakes.peer_name = "first";
    EXPECT_EQ("127.0.0.1 first|Adding DNS Cache Item, 127.0.0.1 is mapped to first", meet("127.0.0.1", 0xff));
    fakes.peer_name = "second";
    EXPECT_EQ("127.0.0.1 first|QLSR DNS Cache is activated. 127.0.0.1 is mapped to first", meet("127.0.0.1", 0xff));
    EXPECT_EQ("::1 second", meet("::1", 0));
    fakes.clock += 62;
    fakes.seconds_per_answer = 6;
    EXPECT_THAT(meet("127.0.0.1", 0xff),
        MatchesRegex("127.0.0.1 second.2 items will be clear up..There might be DNS issue. It took 6.... "
                     "seconds to resolve remote address .127.0.0.1, [0-9]+.. 1 times..Adding DNS.*"));
    close(fd);
    sockaddr_storage local{};
    local.ss_family = AF_UNIX;
    char host[4];
    const auto name = [&] {
        return NetGetPeerName(reinterpret_cast<sockaddr *>(&local), sizeof local, host, sizeof host);
    };
    EXPECT_FAILS_WITH(
        "97 NetGetPeerName: get_ip_str. Failed to turn sockaddr to IP string. Turn off DNS Cache", -1, name());
    fakes.seconds_per_answer = 0, local.ss_family = AF_INET;
    EXPECT_FAILS_WITH("105 NetGetPeerName: buffer too small", -1, name());
    EXPECT_FAILS_WITH(
        "99 NetBindAndListen: 192.0.2.1: could not bind to this interface using IPv4 (Cannot assign requested "
        "address), will try next\n"
        "99 NetBindAndListen: Failed to bind and listen to a socket, exhausted all possible interfaces",
        -1, NetBindAndListen("192.0.2.1", 0, nullptr, &fd));
    EXPECT_FALSE(g_DNS_Cache_enabled);
}

TEST(Transfer, KeepsLinesAndSurvivesBrokenPeers) {
    for (const auto &row : table(4,
             "250 ok\r\nnext|6|250 ok|next|\n|0|||12345678\r\n.|8|12345678|.|"
             "12345678\r.\n.|ENOBUFS|12345678|.|end\r|4|end\r|||ECONNRESET|?||")) {
        for (const bool socket : {false, true}) {
            SCOPED_TRACE(row[0]);
            int ends[2];
            ASSERT_EQ(0, socket ? socketpair(AF_UNIX, SOCK_STREAM, 0, ends) : pipe(ends));
            ASSERT_EQ(static_cast<ssize_t>(row[0].size()), write(ends[1], row[0].data(), row[0].size()));
            close(ends[1]);
            LogCapture log;
            char line[9] = "?", rest[16] = "";
            const int result = NetReadReply(ends[0], line, sizeof line);
            EXPECT_EQ(row[1], result < 0 ? strerrorname_np(errno) : std::to_string(result));
            EXPECT_EQ(result < 0 ? 1u : 0u, log.lines().size());
            EXPECT_EQ(row[2], line);
            EXPECT_EQ(static_cast<ssize_t>(row[3].size()), read(ends[0], rest, sizeof rest));
            close(ends[0]);
        }
    }
    char text[2048] = "";
    int ends[2], sockets[2];
    ASSERT_EQ(0, pipe(ends) + socketpair(AF_UNIX, SOCK_STREAM, 0, sockets));
    EXPECT_EQ(4 + 1023, NetSend(ends[1], "%d\n", 42) + NetSend(ends[1], "%01500d", 7));
    EXPECT_EQ(4 + 1023, read(ends[0], text, sizeof text));
    EXPECT_TRUE(strncmp(text, "42\n\n0", 5) == 0 && text[4 + 1022] == '\n');
    close(ends[0]), close(sockets[0]);
    // SIGPIPE would end the test here
    EXPECT_FAILS_WITH("32 NetSend: could not send on socket", -1, NetSend(ends[1], "x"));
    EXPECT_FAILS_WITH("32 NetSend: could not send on socket", -1, NetSend(sockets[1], "x"));
    EXPECT_FAILS_WITH("32 write_n_bytes: Error happened in send()", -1, write_n_bytes(sockets[1], text, 9));
    EXPECT_FAILS_WITH("88 read_n_bytes: Error happened in recv()", -1, read_n_bytes(ends[1], text, 9));
    close(ends[1]), close(sockets[1]);
}

TEST(Select, WaitsLongerAndLongerAndTellsDataFromTheEnd) {
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    ASSERT_EQ(1, write(ends[1], "x", 1));
    Fakes fakes;
    fakes.expired_polls = 3;
    {
        LogCapture log;
        EXPECT_EQ(1, NetSelect(ends[0], 0));
        const std::string head = "NetSelect: socket " + std::to_string(ends[0]) + " poll() timed out";
        EXPECT_THAT(log.lines(VEX_LOG_INFO), ElementsAre(head + " after 60000, increasing timeout to 120000, retrying.",
                                                 head + " after 120000, increasing timeout to 240000, retrying.",
                                                 head + ", out of retries, poll() infinite."));
    }
    fakes.expired_polls = 1;
    EXPECT_EQ(0, NetSelect(ends[0], 5));
    EXPECT_THAT(fakes.polls, ElementsAre(60000, 120000, 240000, 5));
    close(ends[1]);
    EXPECT_EQ(1, NetCheckForInput(ends[0]));  // the data wins over the hang-up
    char c;
    ASSERT_EQ(1, read(ends[0], &c, 1));
    const auto failing = [&](int err) {
        const FaultScope fault("poll", 1, err);
        return NetSelect(ends[0], 9);
    };
    EXPECT_FAILS_WITH("32 NetCheckForInput: invalid pipe", -1, NetCheckForInput(ends[0]));
    EXPECT_FAILS_WITH("9 NetSelect: invalid pipe", -1, NetSelect(-1, 0));
    EXPECT_FAILS_LOGGING("", EINTR, -1, failing(EINTR));
    EXPECT_FAILS_WITH("12 NetSelect: poll failed", -1, failing(ENOMEM));
    close(ends[0]);
}

TEST(Interfaces, AndHostRoutesAreThoseOfTheKernel) {
    bool up = false;
    inNamespace(CLONE_NEWNET, [&] {
        up = run("ip link add d0 type veth peer name d1 2>&1 && ip link set d1 up && ip link set lo up && "
                 "ip link set d0 address 02:00:00:00:00:07 up && ip addr add 10.7.0.1/24 brd + dev d0 && "
                 "ip addr add fd00::1/64 dev d0 nodad && echo up") == "up\n";
        if (!up) return;
        vexList *const all = NetInterfaceListCreate(0), *const ranges = iprange_list_create("127.0.0.0/8,10.0.0.0/8");
        const NetInterface *const one = NetInterfaceFindByName(all, "d0"), *const six = NetInterfaceFindByAddress(
                                                                               all, "fd00:0::0001");
        ASSERT_TRUE(one != nullptr && six != nullptr);
        EXPECT_EQ(
            "10.7.0.1 255.255.255.0 10.7.0.255", std::string(one->address) + " " + one->netmask + " " + one->broadcast);
        EXPECT_TRUE(
            one->mac[0] == 2 && one->mac[5] == 7 && one->prefix == 24 && six->prefix == 64 && six->index == one->index);
        vexList *const some = NetInterfaceListFilter(all, ranges);
        EXPECT_TRUE(NetInterfaceFindByName(some, "lo") != nullptr && NetInterfaceFindByName(some, "d0") != nullptr &&
                    NetInterfaceFindByAddress(some, "fd00::1") == nullptr);
        iprange_list_destroy(ranges), NetInterfaceListDestroy(some), NetInterfaceListDestroy(all);
        for (const auto &[target, source, shown] :
            {std::tuple("192.0.2.9", "10.7.0.1", "192.0.2.9 dev d0 proto static scope link src 10.7.0.1"),
                {"2001:db8::9", "fd00::1", "2001:db8::9 dev d0 proto static src fd00::1"}}) {
            EXPECT_EQ(0, NetAddRoute(target, source, "d0"));
            EXPECT_EQ(1, NetAddRoute(target, source, "d0"));
            EXPECT_THAT(run("ip route; ip -6 route"), HasSubstr(shown));
            EXPECT_EQ(0, NetDelRoute(target, source, "d0") + NetDelRoute(target, source, "d0"));
            EXPECT_EQ(std::string::npos, run("ip route; ip -6 route").find(target));
        }
        // a connection's own route goes with the attempt that fails; one that was there stays
        const List list("10.7.0.1", "1");
        NetConnectParams parameters{};
        parameters.route_target = "192.0.2.9", parameters.route_if_name = "d0";
        for (const bool existed : {false, true}) {
            EXPECT_EQ(0, existed ? NetAddRoute("192.0.2.9", nullptr, "d0") : 0);
            LogCapture log;
            EXPECT_EQ(-1, NetConnectByAddr(list.head, &parameters));
            EXPECT_EQ(existed ? 1u : 2u, log.lines(VEX_LOG_INFO).size());
            EXPECT_EQ(existed, run("ip route").find("192.0.2.9") != std::string::npos);
        }
        EXPECT_TRUE(NetAddRoute("192.0.2.9", "fd00::1", "d0") == -1 && errno == EINVAL);
    });
    if (!up) GTEST_SKIP() << "no network namespace with a veth pair on this machine";
}

}  // namespace
