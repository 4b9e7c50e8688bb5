#ifndef COUNTERD_SERVER_H
#define COUNTERD_SERVER_H

#include <cstdint>
#include <string>

/// Hands out the numbers of a persistent counter over a local socket: "next" is answered with
/// "<label> <number>", "status" with the number of answers so far; one line each.
class Server {
public:
    Server() = default;
    ~Server();
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    /// Opens counter and socket; false after one log line.
    bool open(const std::string &socket_path, const std::string &counter_path);

    /// The descriptor to wait on for clients.
    int listener() const { return listener_; }

    /// Serves one client that is waiting.
    void serveOne(const std::string &label);

private:
    std::string answer(const std::string &question, const std::string &label);

    int listener_ = -1;
    std::string socket_path_;
    int counter_ = -1;
    std::string counter_path_;
    uint64_t value_ = 0, answered_ = 0;
};

#endif
