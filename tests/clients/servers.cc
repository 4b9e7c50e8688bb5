#include "servers.h"

#include <signal.h>
#include <sys/wait.h>

#include <chrono>

#include <vex/http.h>

namespace vextest {
namespace {

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
    CurlRequest request;
    for (int i = 0; i < 500 && !running_; ++i) {
        if (i > 0) std::this_thread::sleep_for(std::chrono::milliseconds(10));
        running_ = request.start("http://127.0.0.1:" + port, CurlRequest::HEAD, 1, 1, true, true) == 0 &&
                   request.perform() == 0;
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
