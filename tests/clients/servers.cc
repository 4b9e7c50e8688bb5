#include "servers.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>

namespace vextest {
namespace {

bool answers(const std::string &port) {
    addrinfo *list = nullptr;
    zq_getaddrinfo("127.0.0.1", port.c_str(), nullptr, &list);
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool good = connect(fd, list->ai_addr, list->ai_addrlen) == 0;
    zq_freeaddrinfo(list);
    close(fd);
    return good;
}

size_t contentLength(const std::string &head) {
    const size_t at = head.find("Content-Length: ");
    return at == std::string::npos ? 0 : std::stoul(head.substr(at + 16));
}

}  // namespace

void sendText(int socket, const std::string &text) { (void)send(socket, text.data(), text.size(), MSG_NOSIGNAL); }

std::string answer(int status, const std::string &body, const std::string &lines) {
    return "HTTP/1.1 " + std::to_string(status) + " Text\r\n" + lines +
           "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

ScriptedServer::ScriptedServer(Script script)
    : script_(std::move(script)), peer_([this](int socket) {
          std::string buffered;
          for (++connections_; serveOne(socket, &buffered);) {}
      }) {}

std::vector<ScriptedServer::Request> ScriptedServer::requests() {
    const std::lock_guard lock(mutex_);
    return requests_;
}

bool ScriptedServer::serveOne(int socket, std::string *buffered) {
    const auto more = [&] {
        pollfd ready[] = {{socket, POLLIN, 0}, {peer_.listener, 0, 0}};
        char block[65536];
        if (poll(ready, 2, 10000) <= 0 || ready[1].revents != 0) return false;
        const ssize_t n = recv(socket, block, sizeof block, 0);
        if (n > 0) buffered->append(block, static_cast<size_t>(n));
        return n > 0;
    };
    size_t end;
    while ((end = buffered->find("\r\n\r\n")) == std::string::npos)
        if (!more()) return false;
    Request request{buffered->substr(0, end + 2), "", connections_};
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

Program::Program(const std::string &command, const std::string &port) : pid_(fork()) {
    if (pid_ == 0) {
        execl("/bin/sh", "sh", "-c", ("exec " + command + " >/dev/null 2>&1").c_str(), nullptr);
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

bool makeCertificates(const TempDir &dir) {
    const std::string script =
        "cd '" + dir.path() +
        "' && exec 2>/dev/null && openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout ca.key "
        "-out ca.pem -days 2 -subj /CN=test-ca && for name in server client; do "
        "openssl req -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout $name.key -out $name.csr "
        "-subj /CN=test-$name && printf 'subjectAltName=DNS:localhost' > ext && "
        "openssl x509 -req -in $name.csr -CA ca.pem -CAkey ca.key -CAcreateserial -days 2 -extfile ext -out $name.pem "
        "|| exit 1; done";
    return system(script.c_str()) == 0;
}

}  // namespace vextest
