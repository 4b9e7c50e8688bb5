#include "server.h"

#include <errno.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <vex/vex.h>

namespace {

/// A client that says nothing must not keep the others waiting for long.
constexpr struct timeval kPatience = {2, 0};

bool report(const char *what, const std::string &path) {
    ErrorA(errno, "Server: cannot %s %s: %m", what, path.c_str());
    return false;
}

}  // namespace

Server::~Server() {
    if (listener_ >= 0) {
        close(listener_);
        unlink(socket_path_.c_str());
    }
    if (counter_ >= 0) close(counter_);
}

bool Server::open(const std::string &socket_path, const std::string &counter_path) {
    if (vex_access(counter_path.c_str(), F_OK) != 0 &&
        WriteIdToPath(counter_path.c_str(), "counter", 0) != 0)
        return false;
    counter_ = OpenId(counter_path.c_str(), "counter", &value_, 0);
    if (counter_ < 0) return false;
    counter_path_ = counter_path;

    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (vex_strcpy(address.sun_path, sizeof address.sun_path, socket_path.c_str()) < 0)
        return report("use the name", socket_path);
    // what an earlier run left; the PID file's lock tells that it is gone
    if (unlink(socket_path.c_str()) != 0 && errno != ENOENT) return report("remove", socket_path);
    listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    socket_path_ = socket_path;
    if (listener_ < 0 ||
        bind(listener_, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        listen(listener_, 16) != 0)
        return report("listen on", socket_path);
    return true;
}

std::string Server::answer(const std::string &question, const std::string &label) {
    if (question == "status\n") return "answered " + std::to_string(answered_) + "\n";
    if (question != "next\n") return "error: ask for \"next\" or \"status\"\n";
    if (NextId(counter_path_.c_str(), "counter", &value_, counter_) != 0)
        return "error: the counter cannot be stored\n";
    ++answered_;
    return label + " " + std::to_string(value_) + "\n";
}

void Server::serveOne(const std::string &label) {
    const int client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) {
        WarningA(errno, "Server: cannot accept a client: %m");
        return;
    }
    (void)setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &kPatience, sizeof kPatience);
    (void)setsockopt(client, SOL_SOCKET, SO_SNDTIMEO, &kPatience, sizeof kPatience);
    std::string question;
    char block[64];
    ssize_t got;
    while (question.size() < sizeof block && question.find('\n') == std::string::npos &&
           (got = recv(client, block, sizeof block, 0)) > 0)
        question.append(block, static_cast<size_t>(got));
    const std::string text = answer(question, label);
    if (send(client, text.data(), text.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(text.size()))
        WarningA(errno, "Server: a client went away without its answer: %m");
    close(client);
}
