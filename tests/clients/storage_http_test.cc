// The storage client against nginx, plain and TLS, through tinyproxy, and against a server that
// misbehaves on purpose.

#include "clients/servers.h"

namespace {

StorageHttpOptions optionsFor(const std::string &url, unsigned retries = 0) {
    StorageHttpOptions options;
    options.base_url = url;
    options.timeout_s = options.connect_timeout_s = 10;
    options.retries = retries;
    return options;
}

/// Tells the status and body of each answer, or the errno.
struct Client : StorageHttpClient {
    using StorageHttpClient::StorageHttpClient;
    std::string told(int result) const {
        return result == 0 ? std::to_string(response.status) + " " + response.body : strerrorname_np(errno);
    }
    std::string ask(const std::string &path) { return told(get(path, response)); }
    std::string send(const std::string &path, const std::string &data, const char *type = "") {
        return told(put(path, data.data(), data.size(), type, response));
    }
    std::string postTo(const std::string &path, const char *data, size_t size) {
        return told(post(path, data, size, "", response));
    }
    StorageHttpResponse response;
};

std::string digestOf(const std::string &data) { return SHA256FromData(data.data(), data.size()); }

TEST(StorageHttp, RequestsCarryTheirHeadersAndBodiesOverKeptConnections) {
    ScriptedServer server([](const auto &, int socket) {
        sendText(
            socket, "HTTP/1.1 100 Continue\r\nX-Interim: 1\r\n\r\n" + answer(404, "no\0pe", "X-Answer:  a b \r\n"));
        return true;
    });
    Client client(optionsFor(server.url() + "/base"));
    EXPECT_EQ(0, client.setHeader("Authorization", "old") | client.setHeader("authorization", "token") |
                     client.setHeader("X-Gone", "1") | client.setHeader("X-Gone", ""));
    EXPECT_EQ("404 no", client.ask("/a?b"));
    EXPECT_EQ("a b", *client.response.header("x-answer"));
    EXPECT_EQ(nullptr, client.response.header("X-Interim"));
    EXPECT_EQ("404 no", client.send("/p", "data", "text/x"));
    EXPECT_EQ("404 no", client.postTo("/p", "x", 1));
    EXPECT_EQ("404 no", client.told(client.del("/p", client.response)));
    const auto seen = server.requests();
    EXPECT_THAT(seen[0].head, StartsWith("GET /base/a?b HTTP/1.1\r\n"));
    EXPECT_THAT(seen[0].head, HasSubstr("authorization: token\r\n"));
    EXPECT_THAT(seen[0].head, Not(AnyOf(HasSubstr("old"), HasSubstr("X-Gone"))));
    EXPECT_THAT(seen[1].head + seen[1].body, MatchesRegex("PUT(.|\n)*Content-Type: text/x\r\n(.|\n)*data"));
    EXPECT_THAT(seen[2].head, HasSubstr("Content-Length: 1\r\n"));
    EXPECT_THAT(seen[3].head, StartsWith("DELETE /base/p "));
    EXPECT_EQ(1, seen.back().connection);
    LogCapture log;
    EXPECT_EQ(-3, client.setHeader("A", "b\r\nC: d") + client.setHeader("", "b") + client.setHeader("a:b", "c"));
    EXPECT_EQ("EINVAL", client.send("/p", "data", "text/x\r\nA: b"));
    EXPECT_EQ("EINVAL", client.postTo("/p", nullptr, 4));
    EXPECT_EQ(5u, log.lines().size());
    EXPECT_EQ(4u, server.requests().size());
}

TEST(StorageHttp, TriesAgainOnlyWhereThatIsSafe) {
    int count = 0;
    ScriptedServer server([&](const auto &request, int socket) {
        if (request.head.find("/drop") != std::string::npos) return false;
        const bool busy = request.head.find("/busy") != std::string::npos && ++count % 2 == 1;
        return sendText(socket, busy ? answer(503, "", "Retry-After: 1\r\n") : answer(200, "fine")), true;
    });
    Client client(optionsFor(server.url(), 1)), once(optionsFor(server.url()));
    LogCapture log;
    EXPECT_EQ("200 fine", client.send("/busy", "twice"));
    EXPECT_EQ("twice", server.requests().at(1).body);
    EXPECT_EQ("503 ", client.postTo("/busy", "once", 4));
    EXPECT_EQ(3u, server.requests().size());
    EXPECT_EQ("EIO", client.postTo("/drop?secret", "once", 4));
    EXPECT_EQ(4u, server.requests().size()) << "the server may have acted on it";
    EXPECT_EQ("200 fine", once.ask("/"));
    EXPECT_EQ("EIO", once.send("/drop", "twice"));
    EXPECT_EQ(7u, server.requests().size()) << "the kept connection was dead";
    EXPECT_THAT(log.text(), Not(HasSubstr("secret")));

    log.clear();
    const auto start = std::chrono::steady_clock::now();
    Client nowhere(optionsFor("http://127.0.0.1:" + freePort(), 1));
    EXPECT_EQ("EIO", nowhere.ask("/x"));
    EXPECT_LE(1.0, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    EXPECT_EQ(7, nowhere.response.curl_code);
    EXPECT_THAT(log.text(), MatchesRegex("5 StorageHttpClient::get: /x: Failed to connect to 127.0.0.1[^\n]*"));
    Client unsupported(optionsFor("nosuch://x"));
    for (int i = 0; i < 2; ++i) EXPECT_EQ("EIO", unsupported.ask("/x")) << "no buffer is stuck";
}

TEST(StorageHttp, FollowsRedirectsToTheSameServerOnly) {
    ScriptedServer other([](const auto &, int socket) { return sendText(socket, answer(200, "stolen")), true; });
    ScriptedServer server([&](const auto &request, int socket) {
        const std::string path = request.head.substr(4, request.head.find(" HTTP") - 4);
        const std::map<std::string, std::string> places{
            {"/here", "/there"}, {"/away", other.url() + "/"}, {"/round", "/round"}, {"/up", "/there"}};
        const auto place = places.find(path);
        sendText(socket,
            place == places.end() ? answer(200, "there") : answer(302, "", "Location: " + place->second + "\r\n"));
        return true;
    });
    Client client(optionsFor(server.url()));
    EXPECT_EQ("200 there", client.ask("/here"));
    for (const char *path : {"/away", "/round"}) EXPECT_EQ("302 ", client.ask(path));
    EXPECT_EQ("302 ", client.send("/up", "x"));
    EXPECT_TRUE(other.requests().empty());
}

TEST(StorageHttp, BadServersEndWithAReasonAndBoundedMemory) {
    ScriptedServer server([](const auto &request, int socket) {
        const auto asked = [&](const char *path) { return request.head.find(path) != std::string::npos; };
        if (asked(" /headers ") || asked(" /slow ")) sendText(socket, "HTTP/1.1 200 OK\r\n");
        for (int i = 0; asked(" /headers ") && i < 5000; ++i)
            sendText(socket, "X-Endless: " + std::string(1000, 'x') + "\r\n");
        for (int i = 0; asked(" /slow ") && i < 30; ++i) usleep(100000), sendText(socket, "X");
        if (asked(" /short ")) sendText(socket, "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nshort");
        if (asked(" /large ")) sendText(socket, answer(200, std::string(100000, 'x')));
        if (asked(" /range ")) sendText(socket, answer(206, "other", "Content-Range: bytes 0-4/9\r\n"));
        return false;
    });
    StorageHttpOptions options = optionsFor(server.url(), UINT_MAX);
    options.max_body = 99999;
    options.timeout_s = 1;
    Client client(options);
    LogCapture log;
    for (const auto &row : table(2, "/headers|EFBIG|/short|EIO|/large|EFBIG|/reset|EIO|/slow|ETIMEDOUT|")) {
        EXPECT_EQ(row[1], client.ask(row[0]));
        EXPECT_FALSE(client.response.error.empty());
        EXPECT_THAT(log.take(), MatchesRegex("[^\n]+")) << row[0];
    }
    StorageHttpTransfer transfer;
    transfer.offset = 4;
    EXPECT_EQ("EOPNOTSUPP", client.told(client.getToDescriptor("/range", STDIN_FILENO, transfer, client.response)))
        << "bytes from elsewhere";
}

/// nginx with a plain and a TLS port, files and WebDAV uploads below the directory "www".
struct StorageNginx : FolderTest {
    void SetUp() override {
        if (access("/usr/sbin/nginx", X_OK) != 0) GTEST_SKIP() << "nginx is not installed";
        std::filesystem::create_directories(dir / "www");
        for (const auto &name : {dir.path(), dir / "www"})
            std::filesystem::permissions(name, std::filesystem::perms::all);
        // an authority, ca.pem, with certificates for "localhost", server.pem and server.key, and for a client
        const std::string script = R"(
            exec 2>/dev/null
            key="-newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes"
            openssl req -x509 $key -keyout ca.key -out ca.pem -days 2 -subj /CN=test-ca &&
                printf 'subjectAltName=DNS:localhost' > ext
            for name in server client; do
                openssl req $key -keyout $name.key -out $name.csr -subj /CN=test-$name &&
                openssl x509 -req -in $name.csr -CA ca.pem -CAkey ca.key -CAcreateserial -days 2 -extfile ext \
                    -out $name.pem || exit
            done)";
        ASSERT_EQ(0, system(("cd " + dir.path() + script).c_str()));
        writeFile(dir / "conf",
            "daemon off; pid pid; error_log error; worker_processes 1; events {}\n"
            "http { access_log off; client_body_temp_path body; proxy_temp_path proxy; fastcgi_temp_path f;\n"
            "uwsgi_temp_path u; scgi_temp_path s; client_max_body_size 100m; root www;\n"
            "server { listen 127.0.0.1:" +
                plain_ +
                "; location / { dav_methods PUT DELETE; }\n"
                "  location /small { client_max_body_size 10; dav_methods PUT; } }\n"
                "server { listen 127.0.0.1:" +
                tls_ +
                " ssl; ssl_certificate server.pem;\n"
                "  ssl_certificate_key server.key; ssl_client_certificate ca.pem; ssl_verify_client on;\n"
                "  location /who { return 200 $ssl_client_s_dn; } } }\n");
        nginx_.emplace("/usr/sbin/nginx -p " + dir.path() + " -c " + (dir / "conf"), plain_);
    }
    std::string plainUrl() const { return "http://127.0.0.1:" + plain_; }
    std::string tlsUrl(const std::string &host = "localhost") const { return "https://" + host + ":" + tls_; }
    const std::string plain_ = freePort(), tls_ = freePort();
    std::optional<Program> nginx_;
};

TEST_F(StorageNginx, FilesGoUpAndComeDownWhole) {
    const std::string data = testNoise(5 << 20), from = dir / "from", to = dir / "to";
    writeFile(from, data);
    Client client(optionsFor(plainUrl()));
    EXPECT_EQ("201 ", client.told(client.putFromFile("/file", from, client.response)));
    EXPECT_TRUE(data == readFile(dir / "www/file"));
    EXPECT_EQ("200 ", client.told(client.getToFile("/file", to, client.response)));
    EXPECT_TRUE(data == readFile(to));
    EXPECT_THAT(
        client.told(client.getToFile("/absent", to, client.response)), MatchesRegex("404 (.|\n)*404 Not Found.*"));
    EXPECT_TRUE(data == readFile(to)) << "an error's body never replaces the file";
    EXPECT_EQ("200 ", client.told(client.head("/file", client.response)));
    EXPECT_EQ(std::to_string(data.size()), *client.response.header("content-length"));

    int fd = open(to.c_str(), O_RDWR | O_TRUNC);
    StorageHttpTransfer transfer;
    uint64_t last = 0;
    transfer.progress = [&](uint64_t done, uint64_t) { return last = done, true; };
    transfer.want_digest = true;
    transfer.offset = 1000, transfer.length = 3 << 20;
    const auto download = [&] { return client.told(client.getToDescriptor("/file", fd, transfer, client.response)); };
    const auto upload = [&](uint64_t size) {
        return client.told(client.putFromDescriptor("/part", fd, size, "", transfer, client.response));
    };
    EXPECT_EQ("206 ", download());
    EXPECT_TRUE(data.substr(1000, 3 << 20) == readFile(to));
    EXPECT_EQ(digestOf(data.substr(1000, 3 << 20)), transfer.digest);
    EXPECT_TRUE(transfer.bytes == 3 << 20 && last == transfer.bytes);
    lseek(fd, 500, SEEK_SET);
    EXPECT_EQ("201 ", upload(1000));
    EXPECT_TRUE(data.substr(1500, 1000) == readFile(dir / "www/part"));
    EXPECT_EQ(digestOf(data.substr(1500, 1000)), transfer.digest);
    EXPECT_EQ("ENODATA", upload(4 << 20)) << "the file ends before what was announced";
    transfer.progress = [](uint64_t, uint64_t) { return false; };
    EXPECT_EQ("ECANCELED", download());
    close(fd);
    fd = open("/dev/full", O_WRONLY);
    transfer = {};
    log.clear();
    EXPECT_EQ("ENOSPC", download());
    EXPECT_EQ(1u, log.lines().size());
    close(fd);
    EXPECT_THAT(client.send("/small", std::string(100, 'x')), StartsWith("413 "));
    EXPECT_EQ("204 ", client.told(client.del("/file", client.response)));
    EXPECT_FALSE(std::filesystem::exists(dir / "www/file"));
}

TEST_F(StorageNginx, ThreadsShareAClient) {
    writeFile(dir / "www/file", "shared");
    StorageHttpClient client(optionsFor(plainUrl()));
    inThreads(4, [&](int i) {
        StorageHttpResponse response;
        for (int n = 0; n < 25; ++n) {
            EXPECT_EQ(0, client.setHeader("X-" + std::to_string(i), std::to_string(n)));
            EXPECT_TRUE(client.get("/file", response) == 0 && response.body == "shared");
        }
    });
}

TEST_F(StorageNginx, TlsIsVerifiedOnBothSides) {
    StorageHttpOptions options = optionsFor(tlsUrl());
    const auto who = [&] {
        Client client(options);
        const std::string told = client.ask("/who");
        return std::to_string(client.response.curl_code) + " " + told.substr(0, told.find('<'));
    };
    EXPECT_EQ("60 EIO", who()) << "an unknown authority";
    options.ca_file = dir / "ca.pem";
    EXPECT_EQ("0 400 ", who()) << "no client certificate";
    options.client_cert = dir / "client.pem";
    options.client_key = dir / "client.key";
    EXPECT_EQ("0 200 CN=test-client", who());
    options.base_url = tlsUrl("127.0.0.1");
    EXPECT_EQ("60 EIO", who()) << "another name";
    options.verify_host = false;
    EXPECT_EQ("0 200 CN=test-client", who());
}

TEST_F(StorageNginx, ProxiesAreAskedWithTheirPassword) {
    if (access("/usr/bin/tinyproxy", X_OK) != 0) GTEST_SKIP() << "tinyproxy is not installed";
    const std::string port = freePort();
    writeFile(dir / "proxy.conf", "Port " + port + "\nListen 127.0.0.1\nTimeout 10\nBasicAuth user secret-password\n");
    const Program proxy("/usr/bin/tinyproxy -d -c " + (dir / "proxy.conf"), port);
    writeFile(dir / "www/file", "through");
    StorageHttpOptions options = optionsFor(plainUrl());
    const auto ask = [&](const char *name) { return Client(options).ask(name).substr(0, 11); };
    options.proxy = "http://127.0.0.1:" + port;
    setenv("no_proxy", "*", 1);  // proxies never come from the environment, nor does their absence
    EXPECT_THAT(ask("/file"), StartsWith("407 "));
    options.proxy_user = "user", options.proxy_password = "secret-password";
    EXPECT_EQ("200 through", ask("/file"));
    options.base_url = tlsUrl();
    options.ca_file = dir / "ca.pem";
    EXPECT_THAT(ask("/who"), StartsWith("400 ")) << "by CONNECT";
    options.proxy_password = "wrong-password";
    EXPECT_EQ("EIO", ask("/who"));
    EXPECT_THAT(log.lines(), ElementsAre(Not(HasSubstr("password"))));
}

}  // namespace
