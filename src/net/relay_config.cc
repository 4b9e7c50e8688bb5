// Whether connections go through a relay: two keys of the parent product's configuration file.
#include <errno.h>
#include <fcntl.h>
#include <string.h>

#include <atomic>
#include <mutex>
#include <string>
#include <string_view>

#include <vex/io.h>
#include <vex/log.h>
#include <vex/net.h>
#include <vex/text.h>

#include "base/ascii.h"
#include "base/monotonic.h"
#include "base/unique_fd.h"
#include "log/report.h"
#include "net/resolve.h"

namespace {

constexpr char kFile[] = "/usr/lumen/vaultkeep/hx.conf";
constexpr char kHostKey[] = "NAT_VKPROXY_HOST";
constexpr char kPortKey[] = "NAT_VKPROXY_PORT";
constexpr int64_t kReuseSeconds = 119;
constexpr size_t kMaxFile = 1 << 20;
constexpr size_t kMaxLine = 1023;

/// What the file said when it was last looked at; empty texts when no relay is in force.
struct RelayState {
    std::atomic<int64_t> none_until{
        INT64_MIN};  // up to that second no relay is in force: read without the lock
    std::mutex mutex;
    bool known = false;
    int64_t stamp = 0;  // monotonic seconds of the last look, successful or not
    char host[sizeof relayinfo::relay_host] = "";
    char port[sizeof relayinfo::relay_port] = "";
} state;

/// Copies the value of "key = value"; one that is too long counts as absent.
template <size_t kRoom>
void take(std::string_view line, std::string_view key, char (&value)[kRoom]) {
    const size_t equal = line.find('=');
    if (equal == line.npos || vex::ascii::trim(line.substr(0, equal)) != key) return;
    const std::string_view text = vex::ascii::trim(line.substr(equal + 1));
    const size_t length = text.size() < kRoom ? text.size() : 0;
    memcpy(value, text.data(), length);
    value[length] = '\0';
}

/// Reads the file into the state. What is edited meanwhile counts as it was read: in one pass.
void look(const char *who) {
    state.host[0] = state.port[0] = '\0';
    const vex::UniqueFd file(open(kFile, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    std::string content(file ? kMaxFile : 0, '\0');
    const ssize_t size =
        file ? safe_read(file.get(), content.data(), static_cast<ssize_t>(kMaxFile)) : -1;
    if (size < 0) {
        WarningA(errno, "%s: file (%s) open error ", who, kFile);
        return;
    }
    std::string_view rest(content.data(), static_cast<size_t>(size));
    while (!rest.empty()) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(line.size() + (line.size() < rest.size() ? 1 : 0));
        if (line.size() > kMaxLine || line.find('\0') != line.npos) continue;
        take(line, kHostKey, state.host);
        take(line, kPortKey, state.port);
    }
    if ((state.host[0] == '\0') != (state.port[0] == '\0')) {
        ErrorA(-1, "%s: failed to get %s and %s, missed one of them.", who, kHostKey, kPortKey);
        state.host[0] = state.port[0] = '\0';
    }
}

}  // namespace

namespace vex::net {

int relaySettings(int64_t now_ms, char *host, size_t host_size, char *port, size_t port_size) {
    const int64_t now = now_ms / 1000;
    if (now <= state.none_until.load(std::memory_order_relaxed)) return 0;
    constexpr char kWho[] = "get_nat_vkproxy";
    return guard(kWho, -1, [&] {
        const std::lock_guard lock(state.mutex);
        const bool reuse = state.known && now - state.stamp <= kReuseSeconds;
        if (!reuse) {
            state.known = true;
            state.stamp = now;
            look(kWho);
        }
        if (state.host[0] == '\0') {
            state.none_until.store(state.stamp + kReuseSeconds, std::memory_order_relaxed);
            return 0;
        }
        if (reuse && TraceOn())
            __Trace("%s: Call to this function is within 2 mins, it is a relay env!", kWho);
        if (strlen(state.host) >= host_size || strlen(state.port) >= port_size)
            return VEX_FAIL_AS(kWho, ENOBUFS, ENOBUFS, -1, "buffer too small");
        (void)vex_strcpy(host, host_size, state.host);  // both fit
        (void)vex_strcpy(port, port_size, state.port);
        return 1;
    });
}

}  // namespace vex::net

int get_nat_vkproxy(char *host_out, size_t host_size, char *port_out, size_t port_size) {
    if (host_out == nullptr || port_out == nullptr)
        return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    return vex::net::relaySettings(vex::coarseMs(), host_out, host_size, port_out, port_size);
}
