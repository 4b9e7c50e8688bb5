#include "os/service_manager.h"

#include <errno.h>
#include <stddef.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "base/eintr.h"
#include "base/environment.h"
#include "base/unique_fd.h"

namespace vex::os {

bool notifyServiceManager(const char *message) {
    const char *const place = environmentValue("NOTIFY_SOCKET");
    if (place == nullptr || *place == '\0') return true;
    struct sockaddr_un address {};
    address.sun_family = AF_UNIX;
    const size_t length = strlen(place), room = sizeof address.sun_path;
    if ((*place != '/' && *place != '@') || length >= room) {
        errno = *place == '/' || *place == '@' ? ENAMETOOLONG : EAFNOSUPPORT;
        return false;
    }
    memcpy(address.sun_path, place, length);
    if (*place == '@') address.sun_path[0] = '\0';  // a name outside the file system
    const UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket) return false;
    const auto size = static_cast<socklen_t>(offsetof(struct sockaddr_un, sun_path) + length);
    return retryOnEintr([&] {
               return ::sendto(socket.get(), message, strlen(message), MSG_NOSIGNAL,
                               reinterpret_cast<const struct sockaddr *>(&address), size);
           }) >= 0;
}

}  // namespace vex::os
