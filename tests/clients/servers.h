// Servers for the clients' tests, on loopback: one that plays a script, and real ones from packages.
#ifndef VEXTEST_SERVERS_H
#define VEXTEST_SERVERS_H

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/temp_dir.h"

namespace vextest {

/// Accepts connections one after another and answers every request by the script, which gets the
/// request's head and body and writes what it likes to the socket; false ends the connection.
class ScriptedServer {
public:
    struct Request {
        std::string head, body;
        int connection;  // counted from 1
    };
    using Script = std::function<bool(const Request &, int socket)>;

    explicit ScriptedServer(Script script);
    ~ScriptedServer();
    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }
    std::vector<Request> requests();

private:
    void serve();
    bool serveOne(int socket, int connection, std::string *buffered);

    Script script_;
    int port_ = 0;
    int listener_ = -1;
    std::mutex mutex_;
    std::vector<Request> requests_;
    std::thread thread_;
};

void sendText(int socket, const std::string &text);
/// A whole answer: status line, the lines (each with its line break), length, body.
std::string answer(int status, const std::string &body, const std::string &lines = "");

/// A server program that runs until the end of the scope; waits until its port answers.
class Program {
public:
    Program(const std::vector<std::string> &argv, int port);
    ~Program();
    bool running() const { return running_; }

private:
    pid_t pid_;
    bool running_ = false;
};

int freePort();
bool installed(const char *program);

/// An authority with certificates for "localhost" and for a client, as files in a directory.
struct Certificates {
    explicit Certificates(const TempDir &dir);
    std::string ca, server, server_key, client, client_key;
    bool good;
};

}  // namespace vextest

#endif
