// The storage client against nginx, plain and TLS, through tinyproxy, and against a server that
// misbehaves on purpose.

#include <optional>

#include <vex/digest.h>
#include <vex/storage_http.h>

#include "servers.h"
#include "support/test.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using vextest::answer;
using vextest::Program;
using vextest::ScriptedServer;
using vextest::sendText;

StorageHttpOptions optionsFor(const std::string &url) {
    StorageHttpOptions options;
    options.base_url = url;
    options.timeout_s = options.connect_timeout_s = 10;
    options.retries = 0;
    return options;
}

std::string digestOf(const std::string &data) { return SHA256FromData(data.data(), data.size()); }

TEST(StorageHttp, RequestsCarryTheirHeadersAndBodiesOverKeptConnections) {
    ScriptedServer server([](const auto &, int socket) {
        sendText(
            socket, "HTTP/1.1 100 Continue\r\nX-Interim: 1\r\n\r\n" + answer(404, "no\0pe", "X-Answer:  a b \r\n"));
        return true;
    });
    StorageHttpClient client(optionsFor(server.url() + "/base"));
    StorageHttpResponse response;
    EXPECT_EQ(0, client.setHeader("Authorization", "old") | client.setHeader("authorization", "token") |
                     client.setHeader("X-Gone", "1") | client.setHeader("X-Gone", ""));
    EXPECT_EQ(0, client.get("/a?b", response));
    EXPECT_EQ(404, response.status);
    EXPECT_EQ("no", response.body);
    EXPECT_EQ("a b", *response.header("x-answer"));
    EXPECT_EQ(nullptr, response.header("X-Interim"));
    EXPECT_EQ(0, client.put("/p", "data", 4, "text/x", response) | client.post("/p", "x", 1, "", response) |
                     client.del("/p", response));
    const auto seen = server.requests();
    EXPECT_THAT(seen[0].head, HasSubstr("GET /base/a?b HTTP/1.1\r\n"));
    EXPECT_THAT(seen[0].head, HasSubstr("authorization: token\r\n"));
    EXPECT_THAT(seen[0].head, testing::Not(testing::AnyOf(HasSubstr("old"), HasSubstr("X-Gone"))));
    EXPECT_THAT(seen[1].head, HasSubstr("Content-Type: text/x\r\n"));
    EXPECT_EQ("data", seen[1].body);
    EXPECT_THAT(seen[2].head, HasSubstr("Content-Length: 1\r\n"));
    EXPECT_THAT(seen[3].head, HasSubstr("DELETE /base/p "));
    EXPECT_EQ(1, seen.back().connection);
    vextest::LogCapture log;
    EXPECT_EQ(-1, client.setHeader("A", "b\r\nC: d"));
    EXPECT_EQ(-1, client.setHeader("", "b"));
    EXPECT_EQ(-1, client.put("/p", "data", 4, "text/x\r\nA: b", response));
    EXPECT_FAILS(EINVAL, -1, client.post("/p", nullptr, 4, "", response));
    EXPECT_EQ(4u, log.lines().size());
    EXPECT_EQ(4u, server.requests().size());
}

TEST(StorageHttp, TriesAgainOnlyWhereThatIsSafe) {
    int count = 0;
    ScriptedServer server([&](const auto &, int socket) {
        sendText(socket, ++count % 2 == 1 ? answer(503, "busy", "Retry-After: 1\r\n") : answer(200, "fine"));
        return true;
    });
    StorageHttpOptions options = optionsFor(server.url());
    options.retries = 1;
    StorageHttpClient client(options);
    StorageHttpResponse response;
    EXPECT_EQ(0, client.put("/", "twice", 5, "", response));
    EXPECT_EQ(200, response.status);
    EXPECT_EQ("fine", response.body);
    EXPECT_EQ("twice", server.requests().at(1).body);
    EXPECT_EQ(0, client.post("/", "once", 4, "", response));
    EXPECT_EQ(503, response.status);
    EXPECT_EQ(3u, server.requests().size());

    vextest::LogCapture log;
    ScriptedServer dying([&](const auto &request, int socket) {
        if (request.head.find("/drop") != std::string::npos) return false;
        return sendText(socket, answer(200, "")), true;
    });
    StorageHttpClient dropped(optionsFor(dying.url()));
    EXPECT_EQ(0, dropped.get("/", response));
    EXPECT_EQ(-1, dropped.post("/drop?secret", "once", 4, "", response));
    EXPECT_EQ(2u, dying.requests().size()) << "the server may have acted on it";
    EXPECT_EQ(0, dropped.get("/", response));
    EXPECT_EQ(-1, dropped.put("/drop", "twice", 5, "", response));
    EXPECT_EQ(5u, dying.requests().size()) << "the kept connection was dead";
    for (const auto &line : log.lines()) EXPECT_THAT(line, testing::Not(HasSubstr("secret")));

    options = optionsFor("http://127.0.0.1:" + std::to_string(vextest::freePort()));
    options.retries = 1;
    const size_t before = log.lines().size();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FAILS(EIO, -1, StorageHttpClient(options).get("/x", response));
    EXPECT_LE(1.0, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    EXPECT_EQ(7, response.curl_code);
    ASSERT_EQ(before + 1, log.lines().size());
    EXPECT_THAT(log.lines().back(), HasSubstr("5 StorageHttpClient::get: /x: Failed to connect to 127.0.0.1"));
}

TEST(StorageHttp, FollowsRedirectsToTheSameServerOnly) {
    ScriptedServer other([](const auto &, int socket) { return sendText(socket, answer(200, "stolen")), true; });
    ScriptedServer server([&](const auto &request, int socket) {
        const auto asked = [&](const char *path) { return request.head.find(path) != std::string::npos; };
        sendText(socket, asked(" /here ")    ? answer(302, "", "Location: /there\r\n")
                         : asked(" /away ")  ? answer(302, "", "Location: " + other.url() + "/\r\n")
                         : asked(" /round ") ? answer(302, "", "Location: /round\r\n")
                                             : answer(200, "there"));
        return true;
    });
    StorageHttpClient client(optionsFor(server.url()));
    StorageHttpResponse response;
    EXPECT_EQ(0, client.get("/here", response));
    EXPECT_EQ("there", response.body);
    for (const char *path : {"/away", "/round"}) {
        EXPECT_EQ(0, client.get(path, response));
        EXPECT_EQ(302, response.status);
    }
    EXPECT_EQ(0, client.put("/here", "x", 1, "", response));
    EXPECT_EQ(302, response.status);
    EXPECT_TRUE(other.requests().empty());
}

TEST(StorageHttp, BadServersEndWithAReasonAndBoundedMemory) {
    ScriptedServer server([](const auto &request, int socket) {
        const auto asked = [&](const char *path) { return request.head.find(path) != std::string::npos; };
        if (asked(" /headers ")) {
            sendText(socket, "HTTP/1.1 200 OK\r\n");
            for (int i = 0; i < 5000; ++i) sendText(socket, "X-Endless: " + std::string(1000, 'x') + "\r\n");
        } else if (asked(" /short ")) {
            sendText(socket, "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nshort");
        } else if (asked(" /large ")) {
            sendText(socket, answer(200, std::string(100000, 'x')));
        } else if (asked(" /range ")) {
            sendText(socket, answer(206, "other", "Content-Range: bytes 0-4/9\r\n"));
        } else if (asked(" /slow ")) {
            sendText(socket, "HTTP/1.1 200 OK\r\n");
            for (int i = 0; i < 30; ++i) usleep(100000), sendText(socket, "X");
        }
        return false;
    });
    StorageHttpOptions options = optionsFor(server.url());
    options.max_body = 99999;
    options.timeout_s = 1;
    options.retries = UINT_MAX;
    StorageHttpClient client(options);
    const std::pair<const char *, int> rows[] = {
        {"/headers", EFBIG}, {"/short", EIO}, {"/large", EFBIG}, {"/reset", EIO}, {"/slow", ETIMEDOUT}};
    for (const auto &[path, err] : rows) {
        StorageHttpResponse response;
        vextest::LogCapture log;
        EXPECT_EQ(-1, client.get(path, response)) << path;
        EXPECT_EQ(err, errno) << path << response.error;
        EXPECT_FALSE(response.error.empty());
        EXPECT_EQ(1u, log.lines().size()) << path;
    }
    StorageHttpResponse response;
    StorageHttpTransfer transfer;
    transfer.offset = 4;
    vextest::LogCapture log;
    EXPECT_EQ(-1, client.getToDescriptor("/range", STDIN_FILENO, transfer, response));
    EXPECT_EQ(ENOTSUP, errno) << "bytes from elsewhere";
}

/// nginx with a plain and a TLS port, files and WebDAV uploads below the directory "www".
class StorageNginx : public testing::Test {
protected:
    StorageNginx() : certificates_(dir_) {
        std::filesystem::create_directories(dir_ / "www");
        std::filesystem::permissions(dir_.path(), std::filesystem::perms::all);
        std::filesystem::permissions(dir_ / "www", std::filesystem::perms::all);
        vextest::writeFile(dir_ / "conf",
            "daemon off; pid pid; error_log error; worker_processes 1; events {}\n"
            "http { access_log off; client_body_temp_path body; proxy_temp_path proxy; fastcgi_temp_path f;\n"
            "uwsgi_temp_path u; scgi_temp_path s; client_max_body_size 100m;\n"
            "server { listen 127.0.0.1:" +
                std::to_string(plain_) +
                "; root www; location / { dav_methods PUT DELETE; }\n"
                "  location /small { client_max_body_size 10; dav_methods PUT; } }\n"
                "server { listen 127.0.0.1:" +
                std::to_string(tls_) +
                " ssl; root www; ssl_certificate server.pem;\n"
                "  ssl_certificate_key server.key; ssl_client_certificate ca.pem; ssl_verify_client on;\n"
                "  location /who { return 200 $ssl_client_s_dn; } } }\n");
    }
    void SetUp() override {
        if (!vextest::installed("/usr/sbin/nginx")) GTEST_SKIP() << "nginx is not installed";
        ASSERT_TRUE(certificates_.good);
        nginx_.emplace(std::vector<std::string>{"/usr/sbin/nginx", "-p", dir_.path(), "-c", dir_ / "conf"}, plain_);
        ASSERT_TRUE(nginx_->running());
    }
    std::string plainUrl() const { return "http://127.0.0.1:" + std::to_string(plain_); }
    std::string tlsUrl(const char *host = "localhost") const {
        return std::string("https://") + host + ":" + std::to_string(tls_);
    }
    vextest::TempDir dir_;
    const int plain_ = vextest::freePort(), tls_ = vextest::freePort();
    vextest::Certificates certificates_;
    std::optional<Program> nginx_;
};

TEST_F(StorageNginx, FilesGoUpAndComeDownWhole) {
    std::string data(5 << 20, '\0');
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * i >> 8);
    const std::string from = dir_ / "from", to = dir_ / "to";
    vextest::writeFile(from, data);
    StorageHttpClient client(optionsFor(plainUrl()));
    StorageHttpResponse response;
    EXPECT_EQ(0, client.putFromFile("/file", from, response));
    EXPECT_EQ(201, response.status);
    EXPECT_TRUE(data == vextest::readFile(dir_ / "www/file"));
    EXPECT_EQ(0, client.getToFile("/file", to, response));
    EXPECT_TRUE(data == vextest::readFile(to));
    EXPECT_EQ(0, client.getToFile("/absent", to, response));
    EXPECT_EQ(404, response.status);
    EXPECT_THAT(response.body, HasSubstr("404 Not Found"));
    EXPECT_TRUE(data == vextest::readFile(to)) << "an error's body never replaces the file";
    EXPECT_EQ(0, client.head("/file", response));
    EXPECT_EQ(std::to_string(data.size()), *response.header("content-length"));

    int fd = open(to.c_str(), O_RDWR | O_TRUNC);
    StorageHttpTransfer transfer;
    uint64_t last = 0;
    transfer.progress = [&](uint64_t done, uint64_t) { return last = done, true; };
    transfer.want_digest = true;
    transfer.offset = 1000, transfer.length = 3 << 20;
    EXPECT_EQ(0, client.getToDescriptor("/file", fd, transfer, response));
    EXPECT_EQ(206, response.status);
    EXPECT_TRUE(data.substr(1000, 3 << 20) == vextest::readFile(to));
    EXPECT_EQ(digestOf(data.substr(1000, 3 << 20)), transfer.digest);
    EXPECT_TRUE(transfer.bytes == 3 << 20 && last == transfer.bytes);
    lseek(fd, 500, SEEK_SET);
    EXPECT_EQ(0, client.putFromDescriptor("/part", fd, 1000, "", transfer, response));
    EXPECT_TRUE(data.substr(1500, 1000) == vextest::readFile(dir_ / "www/part"));
    EXPECT_EQ(digestOf(data.substr(1500, 1000)), transfer.digest);
    vextest::LogCapture log;
    EXPECT_EQ(-1, client.putFromDescriptor("/part", fd, 4 << 20, "", transfer, response));
    EXPECT_EQ(ENODATA, errno) << "the file ends before what was announced";
    transfer.progress = [](uint64_t, uint64_t) { return false; };
    EXPECT_FAILS(ECANCELED, -1, client.getToDescriptor("/file", fd, transfer, response));
    close(fd);
    fd = open("/dev/full", O_WRONLY);
    transfer = {};
    const size_t before = log.lines().size();
    EXPECT_FAILS(ENOSPC, -1, client.getToDescriptor("/file", fd, transfer, response));
    EXPECT_EQ(before + 1, log.lines().size());
    close(fd);
    EXPECT_EQ(0, client.put("/small", std::string(100, 'x').data(), 100, "", response));
    EXPECT_EQ(413, response.status);
    EXPECT_EQ(0, client.del("/file", response));
    EXPECT_FALSE(std::filesystem::exists(dir_ / "www/file"));
}

TEST_F(StorageNginx, ThreadsShareAClient) {
    vextest::writeFile(dir_ / "www/file", "shared");
    StorageHttpClient client(optionsFor(plainUrl()));
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&, i] {
            StorageHttpResponse response;
            for (int n = 0; n < 25; ++n) {
                EXPECT_EQ(0, client.setHeader("X-" + std::to_string(i), std::to_string(n)));
                EXPECT_TRUE(client.get("/file", response) == 0 && response.body == "shared");
            }
        });
    for (auto &thread : threads) thread.join();
}

TEST_F(StorageNginx, TlsIsVerifiedOnBothSides) {
    StorageHttpOptions options = optionsFor(tlsUrl());
    StorageHttpResponse response;
    vextest::LogCapture log;
    EXPECT_EQ(-1, StorageHttpClient(options).get("/who", response)) << "an unknown authority";
    EXPECT_EQ(60, response.curl_code);
    options.ca_file = certificates_.ca;
    EXPECT_EQ(0, StorageHttpClient(options).get("/who", response));
    EXPECT_EQ(400, response.status) << "no client certificate";
    options.client_cert = certificates_.client;
    options.client_key = certificates_.client_key;
    EXPECT_EQ(0, StorageHttpClient(options).get("/who", response));
    EXPECT_EQ("CN=test-client", response.body);
    options.base_url = tlsUrl("127.0.0.1");
    EXPECT_EQ(-1, StorageHttpClient(options).get("/who", response)) << "another name";
    EXPECT_EQ(60, response.curl_code);
    options.verify_host = false;
    EXPECT_EQ(0, StorageHttpClient(options).get("/who", response));
    EXPECT_EQ(200, response.status);
}

TEST_F(StorageNginx, ProxiesAreAskedWithTheirPassword) {
    if (!vextest::installed("/usr/bin/tinyproxy")) GTEST_SKIP() << "tinyproxy is not installed";
    const int port = vextest::freePort();
    vextest::writeFile(dir_ / "proxy.conf",
        "Port " + std::to_string(port) + "\nListen 127.0.0.1\nTimeout 10\nBasicAuth user secret-password\n");
    const Program proxy({"/usr/bin/tinyproxy", "-d", "-c", dir_ / "proxy.conf"}, port);
    vextest::writeFile(dir_ / "www/file", "through");
    StorageHttpOptions options = optionsFor(plainUrl());
    options.proxy = "http://127.0.0.1:" + std::to_string(port);
    setenv("no_proxy", "*", 1);  // proxies never come from the environment, nor does their absence
    StorageHttpResponse response;
    EXPECT_EQ(0, StorageHttpClient(options).get("/file", response));
    EXPECT_EQ(407, response.status);
    options.proxy_user = "user", options.proxy_password = "secret-password";
    EXPECT_EQ(0, StorageHttpClient(options).get("/file", response));
    EXPECT_EQ("through", response.body);
    options.base_url = tlsUrl();
    options.ca_file = certificates_.ca;
    EXPECT_EQ(0, StorageHttpClient(options).get("/who", response)) << "by CONNECT";
    EXPECT_EQ(400, response.status);
    options.proxy_password = "wrong-password";
    vextest::LogCapture log;
    EXPECT_EQ(-1, StorageHttpClient(options).get("/who", response));
    EXPECT_THAT(log.lines().at(0), testing::Not(HasSubstr("password")));
}

}  // namespace
