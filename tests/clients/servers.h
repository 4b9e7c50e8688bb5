// A server on loopback that plays a script.
#ifndef VEXTEST_SERVERS_H
#define VEXTEST_SERVERS_H

#include <mutex>

#include "support/peer.h"
#include "support/test.h"

namespace vextest {

/// Answers every request by the script, which gets the request's head and body and writes what it likes to the socket;
/// false ends the connection. Clients must be gone before it.
class ScriptedServer {
public:
    struct Request {
        std::string head, body;
        int connection;  // counted from 1
    };
    using Script = std::function<bool(const Request &, int socket)>;

    explicit ScriptedServer(Script script)
        : script_(std::move(script)), peer_([this](int socket) {
              std::string buffered;
              for (++connections_; serveOne(socket, &buffered);) {}
          }) {}
    std::string url() const { return "http://127.0.0.1:" + peer_.port; }
    std::vector<Request> requests() {
        const std::lock_guard lock(mutex_);
        return requests_;
    }

private:
    bool serveOne(int socket, std::string *buffered) {
        const auto more = [&] {
            char block[65536];
            const ssize_t n = recv(socket, block, sizeof block, 0);
            buffered->append(block, static_cast<size_t>(std::max<ssize_t>(n, 0)));
            return n > 0;
        };
        size_t end;
        while ((end = buffered->find("\r\n\r\n")) == std::string::npos)
            if (!more()) return false;
        Request request{buffered->substr(0, end + 2), "", connections_};
        buffered->erase(0, end + 4);
        const std::string field = "Content-Length: ";
        const size_t at = request.head.find(field);
        const size_t length = at == std::string::npos ? 0 : std::stoul(request.head.substr(at + field.size()));
        while (buffered->size() < length)
            if (!more()) return false;
        request.body = buffered->substr(0, length);
        buffered->erase(0, length);
        {
            const std::lock_guard lock(mutex_);
            requests_.push_back(request);
        }
        return script_(request, socket);
    }

    Script script_;
    std::mutex mutex_;
    std::vector<Request> requests_;
    int connections_ = 0;
    Peer peer_;
};

inline void sendText(int socket, const std::string &text) {
    (void)send(socket, text.data(), text.size(), MSG_NOSIGNAL);
}

/// A whole answer: status line, the lines (each with its line break), length, body.
inline std::string answer(int status, const std::string &body, const std::string &lines = "") {
    return "HTTP/1.1 " + std::to_string(status) + " Text\r\n" + lines +
           "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

}  // namespace vextest

#endif
