// A resolver, a clock and waits that do as the test says, and peers on loopback.
#ifndef VEXTEST_NET_FAKES_H
#define VEXTEST_NET_FAKES_H

#include <deque>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <vex/net.h>

namespace vextest {

/// What the system calls of the program do instead, until the end of the scope.
struct Fakes {
    Fakes();
    ~Fakes();
    Fakes(const Fakes &) = delete;
    Fakes &operator=(const Fakes &) = delete;

    /// The resolver's next answers: an EAI_ code (EAI_SYSTEM with EAGAIN), 0 asks the real one.
    std::deque<int> answers;
    int seconds_per_answer = 0;
    std::string peer_name;  ///< what reverse look-ups find; empty for the real one
    int expired_polls = 0;  ///< that many polls expire at once, the time passing on the clock
    std::vector<int> polls; ///< their time-outs
    bool interrupt_connect = false;  ///< every connect goes on behind an EINTR
    double clock = 0;                ///< seconds that the clocks are ahead
};

/// Serves one connection after the other on loopback by the script, in a thread.
class Peer {
public:
    explicit Peer(std::function<void(int socket)> script, const char *address = "127.0.0.1");
    ~Peer();
    std::string port() const { return std::to_string(port_); }
    /// The address list of the peer, made by zq_getaddrinfo.
    addrinfo *list() const { return list_; }

private:
    int listener_ = -1;
    unsigned port_ = 0;
    addrinfo *list_ = nullptr;
    std::thread thread_;
};

/// The port of a socket's own end.
unsigned portOf(int socket);

/// Runs the body in a thread with namespaces of its own: CLONE_NEWNS with an empty /usr, or
/// CLONE_NEWNET with loopback up. False where the machine does not allow that.
bool inNamespace(int flags, const std::function<void()> &body);

}  // namespace vextest

#endif
