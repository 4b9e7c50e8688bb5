#include <curl/curl.h>

#include <vex/http.h>

#include "servers.h"
#include "support/test.h"

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using vextest::answer;
using vextest::ScriptedServer;
using vextest::sendText;

bool echo(const ScriptedServer::Request &request, int socket) {
    sendText(socket, answer(200, request.head.substr(0, 4) == "HEAD" ? "" : "body", "X-Seen: 1\r\n"));
    return true;
}

TEST(CurlRequest, SixMethodsReachTheServerWithExactlyTheirHeadersAndBodies) {
    ScriptedServer server(echo);
    const std::string data("a\0b\xff", 4);
    const struct {
        CurlRequest::HttpMethod method;
        const char *line;
        std::string body, length;
    } rows[] = {
        {CurlRequest::POST, "POST /x HTTP/1.1\r\n", data, "Content-Length: 4\r\n"},
        {CurlRequest::GET, "GET /x HTTP/1.1\r\n", "", ""},
        {CurlRequest::PUT, "PUT /x HTTP/1.1\r\n", data, "Content-Length: 4\r\n"},
        {CurlRequest::DELETE, "DELETE /x HTTP/1.1\r\n", "", ""},
        {CurlRequest::HEAD, "HEAD /x HTTP/1.1\r\n", "", ""},
        {CurlRequest::PATCH, "PATCH /x HTTP/1.1\r\n", data, "Content-Length: 4\r\n"},
    };
    CurlRequest request;
    for (const auto &row : rows) {
        request.putData(data.data(), data.size());
        ASSERT_EQ(0, request.start(server.url() + "/x", row.method, 5, 5, true, true));
        request.headers(std::vector<std::string>{"X-One: 1", "X-Two: 2"});
        ASSERT_EQ(0, request.perform());
        EXPECT_EQ(200, request.getHttpRespCode());
        EXPECT_EQ(row.method == CurlRequest::HEAD ? "" : "body", request.getData());
        EXPECT_THAT(request.getHeader(), HasSubstr("X-Seen: 1\r\n"));
        const auto seen = server.requests().back();
        EXPECT_THAT(seen.head, StartsWith(row.line));
        EXPECT_THAT(seen.head, HasSubstr("X-One: 1\r\nX-Two: 2\r\n"));
        EXPECT_THAT(seen.head, HasSubstr(row.length));
        EXPECT_THAT(seen.head, Not(HasSubstr("Expect")));
        EXPECT_EQ(row.body, seen.body);
        EXPECT_EQ(1, seen.connection) << "kept open";
    }
    request.putData(nullptr, 0);
    ASSERT_EQ(0, request.start(server.url() + "/x", CurlRequest::PATCH, 5, 5, true, true));
    ASSERT_EQ(0, request.perform());
    EXPECT_THAT(server.requests().back().head, HasSubstr("Content-Length: 0\r\n"));
    ASSERT_EQ(0, request.start(server.url() + "/x", CurlRequest::POST, std::string("{}"), "application/json",
                     {"X-Three: 3"}, 5, 5, true, true));
    vextest::LogCapture log;
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
    EXPECT_EQ(CURLE_COULDNT_CONNECT, perform("http://127.0.0.1:" + std::to_string(vextest::freePort())));
    request.easy_cleanup();
    EXPECT_EQ(-1, request.start(server.url(), CurlRequest::GET, 1, 1, true, true));
    EXPECT_EQ(-1, request.perform());
    EXPECT_EQ(0, request.easy_init() + CurlRequest::global_init());
    CurlRequest::global_cleanup();
    CurlRequest::global_cleanup();
    EXPECT_EQ(CURLE_PARTIAL_FILE, perform(server.url())) << "the process's own set-up stays";
}

}  // namespace
