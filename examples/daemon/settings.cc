#include "settings.h"

#include <limits.h>

#include <vex/vex.h>

namespace {

bool get(const char *ini, const char *key, const char *standard, std::string *out) {
    char value[PATH_MAX];
    if (InifileGetPathA("Daemon", key, value, sizeof value, standard, ini) > PATH_MAX) {
        ErrorA(EINVAL, "loadSettings: the value of %s in %s is too long", key, ini);
        return false;
    }
    *out = value;
    return true;
}

}  // namespace

bool loadSettings(const char *ini, Settings *settings) {
    // the store keeps what it has read, and takes a missing file for an empty one
    (void)InifileReleaseA(ini);
    if (vex_access(ini, R_OK) != 0) {
        ErrorA(errno, "loadSettings: cannot read %s: %m", ini);
        return false;
    }
    Settings fresh;
    if (!get(ini, "Socket", "/run/counterd/socket", &fresh.socket) ||
        !get(ini, "Counter", "/var/lib/counterd/counter", &fresh.counter) ||
        !get(ini, "PidFile", "/run/counterd/pid", &fresh.pid_file) ||
        !get(ini, "User", "", &fresh.user) || !get(ini, "Label", "ticket", &fresh.label))
        return false;
    char log[PATH_MAX];
    const int flags =
        vexLogLoadA(ini, "Logging", "LogPath", log, sizeof log, "counterd.log", nullptr);
    if (flags < 0) return false;  // reported
    (void)vexLogSet(log, flags | VEX_LOG_STDERR_SEVERE, 0);
    *settings = fresh;
    return true;
}
