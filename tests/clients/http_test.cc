#include <curl/curl.h>

#include "clients/servers.h"

TEST(CurlRequest, SixMethodsReachTheServerWithExactlyTheirHeadersAndBodies) {
    ScriptedServer server([](const auto &request, int socket) {
        sendText(socket, answer(200, request.head.substr(0, 4) == "HEAD" ? "" : "body", "X-Seen: 1\r\n"));
        return true;
    });
    const std::string data("a\0b\xff", 4);
    const std::tuple<CurlRequest::HttpMethod, std::string, bool> rows[] = {{CurlRequest::POST, "POST", true},
        {CurlRequest::GET, "GET", false}, {CurlRequest::PUT, "PUT", true}, {CurlRequest::DELETE, "DELETE", false},
        {CurlRequest::HEAD, "HEAD", false}, {CurlRequest::PATCH, "PATCH", true}};
    CurlRequest request;
    for (const auto &[method, name, sends] : rows) {
        request.putData(data.data(), data.size());
        ASSERT_EQ(0, request.start(server.url() + "/x", method, 5, 5, true, true));
        request.headers(std::vector<std::string>{"X-One: 1", "X-Two: 2"});
        ASSERT_EQ(0, request.perform());
        EXPECT_EQ(200, request.getHttpRespCode());
        EXPECT_EQ(method == CurlRequest::HEAD ? "" : "body", request.getData());
        EXPECT_THAT(request.getHeader(), HasSubstr("X-Seen: 1\r\n"));
        const auto seen = server.requests().back();
        EXPECT_THAT(seen.head, StartsWith(name + " /x HTTP/1.1\r\n"));
        EXPECT_THAT(seen.head, HasSubstr("X-One: 1\r\nX-Two: 2\r\n"));
        EXPECT_EQ(sends, seen.head.find("Content-Length: 4\r\n") != std::string::npos);
        EXPECT_THAT(seen.head, Not(HasSubstr("Expect")));
        EXPECT_EQ(sends ? data : "", seen.body);
        EXPECT_EQ(1, seen.connection) << "kept open";
    }
    request.putData(nullptr, 0);
    ASSERT_EQ(0, request.start(server.url() + "/x", CurlRequest::PATCH, 5, 5, true, true));
    ASSERT_EQ(0, request.perform());
    EXPECT_THAT(server.requests().back().head, HasSubstr("Content-Length: 0\r\n"));
    ASSERT_EQ(0, request.start(server.url() + "/x", CurlRequest::POST, std::string("{}"), "application/json",
                     {"X-Three: 3"}, 5, 5, true, true));
    LogCapture log;
    request.headers("X-Bad: 1\r\nInjected: 1");
    EXPECT_EQ(1u, log.lines().size());
    ASSERT_EQ(0, request.perform());
    EXPECT_THAT(server.requests().back().head, HasSubstr("Content-Type: application/json\r\nX-Three: 3\r\n"));
    EXPECT_EQ("{}", server.requests().back().body);
    EXPECT_EQ("a%20b%2F%C3%BC", request.encodeUrl("a b/\xc3\xbc"));
    EXPECT_EQ("", request.encodeUrl(""));
}

TEST(CurlRequest, ACallersBufferIsFilledToItsEndAndServesOnce) {
    const std::string body(100000, 'b');
    ScriptedServer server([&](const auto &, int socket) { return sendText(socket, answer(200, body)), true; });
    CurlRequest request;
    for (const size_t room : {body.size() + 1, body.size(), body.size() - 1, size_t{10}, size_t{0}}) {
        std::string buffer(room + 1, '#');
        request.getData(buffer.data(), room);
        ASSERT_EQ(0, request.start(server.url(), CurlRequest::GET, 5, 5, true, true));
        EXPECT_EQ(room >= body.size() ? CURLE_OK : CURLE_WRITE_ERROR, request.perform());
        const size_t filled = std::min(room, body.size());
        EXPECT_TRUE(std::string(filled, 'b') + '#' == buffer.substr(0, filled + 1)) << room;
    }
    ASSERT_EQ(0, request.start(server.url(), CurlRequest::GET, 5, 5, true, true));
    ASSERT_EQ(0, request.perform());
    EXPECT_TRUE(body == request.getDataString());
}

TEST(CurlRequest, GivesLibcurlsCodesAndWorksAgainAfterACleanUp) {
    ScriptedServer server([](const auto &, int socket) {
        return sendText(socket, "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nshort"), false;
    });
    CurlRequest request;
    const auto perform = [&](const std::string &url) {
        EXPECT_EQ(0, request.start(url, CurlRequest::GET, 1, 1, true, true));
        return request.perform();
    };
    for (int i = 0; i < 2; ++i) EXPECT_EQ(CURLE_UNSUPPORTED_PROTOCOL, perform("nosuch://x")) << "no buffer is stuck";
    EXPECT_EQ(CURLE_COULDNT_CONNECT, perform("http://127.0.0.1:" + freePort()));
    request.easy_cleanup();
    EXPECT_EQ(-1, request.start(server.url(), CurlRequest::GET, 1, 1, true, true));
    EXPECT_EQ(-1, request.perform());
    EXPECT_EQ(0, request.easy_init() + CurlRequest::global_init());
    CurlRequest::global_cleanup();
    CurlRequest::global_cleanup();
    EXPECT_EQ(CURLE_PARTIAL_FILE, perform(server.url())) << "the process's own set-up stays";
}
