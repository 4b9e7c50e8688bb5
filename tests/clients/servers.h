// Servers for the clients' tests, on loopback: one that plays a script, and real ones from packages.
#ifndef VEXTEST_SERVERS_H
#define VEXTEST_SERVERS_H

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "support/peer.h"
#include "support/temp_dir.h"

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

    explicit ScriptedServer(Script script);
    std::string url() const { return "http://127.0.0.1:" + peer_.port; }
    std::vector<Request> requests();

private:
    bool serveOne(int socket, std::string *buffered);

    Script script_;
    std::mutex mutex_;
    std::vector<Request> requests_;
    int connections_ = 0;
    Peer peer_;
};

void sendText(int socket, const std::string &text);
/// A whole answer: status line, the lines (each with its line break), length, body.
std::string answer(int status, const std::string &body, const std::string &lines = "");

/// A server that a shell command runs until the end of the scope; waits until its port answers.
class Program {
public:
    Program(const std::string &command, const std::string &port);
    ~Program();
    bool running() const { return running_; }

private:
    pid_t pid_;
    bool running_ = false;
};

/// Makes an authority, ca.pem, with certificates for "localhost", server.pem and server.key, and for a client.
bool makeCertificates(const TempDir &dir);

}  // namespace vextest

#endif
