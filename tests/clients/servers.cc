#include "servers.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

#include <vex/process.h>

namespace vextest {
namespace {

int listenOnLoopback(int *port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(fd, reinterpret_cast<sockaddr *>(&address), size) != 0 || listen(fd, 16) != 0) abort();
    getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size);
    *port = ntohs(address.sin_port);
    return fd;
}

bool answers(int port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    const bool good = connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
    close(fd);
    return good;
}

size_t contentLength(const std::string &head) {
    const size_t at = head.find("Content-Length: ");
    return at == std::string::npos ? 0 : std::stoul(head.substr(at + 16));
}

}  // namespace

void sendText(int socket, const std::string &text) {
    for (size_t at = 0; at < text.size();) {
        const ssize_t n = send(socket, text.data() + at, text.size() - at, MSG_NOSIGNAL);
        if (n <= 0) return;
        at += static_cast<size_t>(n);
    }
}

std::string answer(int status, const std::string &body, const std::string &lines) {
    return "HTTP/1.1 " + std::to_string(status) + " Text\r\n" + lines +
           "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

ScriptedServer::ScriptedServer(Script script)
    : script_(std::move(script)), listener_(listenOnLoopback(&port_)), thread_([this] { serve(); }) {}

ScriptedServer::~ScriptedServer() {
    shutdown(listener_, SHUT_RDWR);
    thread_.join();
    close(listener_);
}

std::vector<ScriptedServer::Request> ScriptedServer::requests() {
    const std::lock_guard lock(mutex_);
    return requests_;
}

void ScriptedServer::serve() {
    for (int connection = 1;; ++connection) {
        const int socket = accept(listener_, nullptr, nullptr);
        if (socket < 0) return;
        std::string buffered;
        while (serveOne(socket, connection, &buffered)) {}
        close(socket);
    }
}

bool ScriptedServer::serveOne(int socket, int connection, std::string *buffered) {
    const auto more = [&] {
        pollfd ready[] = {{socket, POLLIN, 0}, {listener_, 0, 0}};
        char block[65536];
        if (poll(ready, 2, 10000) <= 0 || ready[1].revents != 0) return false;
        const ssize_t n = recv(socket, block, sizeof block, 0);
        if (n > 0) buffered->append(block, static_cast<size_t>(n));
        return n > 0;
    };
    size_t end;
    while ((end = buffered->find("\r\n\r\n")) == std::string::npos)
        if (!more()) return false;
    Request request{buffered->substr(0, end + 2), "", connection};
    buffered->erase(0, end + 4);
    const size_t length = contentLength(request.head);
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

int freePort() {
    int port;
    close(listenOnLoopback(&port));
    return port;
}

bool installed(const char *program) { return access(program, X_OK) == 0; }

Program::Program(const std::vector<std::string> &argv, int port) : pid_(fork()) {
    if (pid_ == 0) {
        const int null = open("/dev/null", O_RDWR);
        dup2(null, 1), dup2(null, 2);
        std::vector<char *> arguments;
        for (const auto &argument : argv) arguments.push_back(const_cast<char *>(argument.c_str()));
        arguments.push_back(nullptr);
        execv(arguments[0], arguments.data());
        _exit(127);
    }
    for (int i = 0; i < 500 && !running_; ++i) {
        running_ = answers(port);
        if (!running_) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

Program::~Program() {
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
}

Certificates::Certificates(const TempDir &dir)
    : ca(dir / "ca.pem"),
      server(dir / "server.pem"),
      server_key(dir / "server.key"),
      client(dir / "client.pem"),
      client_key(dir / "client.key") {
    const std::string script =
        "cd '" + dir.path() +
        "' && openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout ca.key -out ca.pem -days 2 "
        "-subj /CN=test-ca && for name in server client; do "
        "openssl req -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout $name.key -out $name.csr "
        "-subj /CN=test-$name && printf 'subjectAltName=DNS:localhost' > ext && "
        "openssl x509 -req -in $name.csr -CA ca.pem -CAkey ca.key -CAcreateserial -days 2 -extfile ext -out $name.pem "
        "|| exit 1; done";
    const char *const argv[] = {"/bin/sh", "-c", script.c_str(), nullptr};
    int status = -1;
    char output[4096];
    good = VexSpawn(argv, &status, output, sizeof output, 60) == 0 && status == 0;
}

}  // namespace vextest
