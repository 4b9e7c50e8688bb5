// counterd: a small daemon that shows how the library's pieces make a service. It reads its ini
// file, detaches, locks its PID file, drops root, says that it is ready, serves until SIGTERM, and
// reads its settings again at SIGHUP.
#include <errno.h>
#include <limits.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <vex/vex.h>

#include "server.h"
#include "settings.h"

namespace {

void usage(const char *progname) {
    printf("\nUsage: %s [--foreground] --ini FILE\n", progname);
}

/// SIGTERM, SIGINT and SIGHUP as a descriptor, so that nothing happens inside a handler.
int openSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int one : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&signals, one);
    if (pthread_sigmask(SIG_BLOCK, &signals, nullptr) != 0) return -1;
    return signalfd(-1, &signals, SFD_CLOEXEC);
}

int nextSignal(int signals) {
    signalfd_siginfo info;
    return safe_read(signals, &info, sizeof info) == sizeof info ? static_cast<int>(info.ssi_signo)
                                                                 : SIGTERM;
}

/// Serves until a signal ends it.
void serve(Server *server, int signals, const char *ini, Settings *settings) {
    for (;;) {
        pollfd ready[] = {{signals, POLLIN, 0}, {server->listener(), POLLIN, 0}};
        if (poll(ready, 2, -1) < 0 && errno != EINTR) return;
        if (ready[0].revents != 0) {
            if (nextSignal(signals) != SIGHUP) return;
            if (loadSettings(ini, settings)) InfoA(-1, "settings read again from %s", ini);
        }
        if (ready[1].revents != 0) server->serveOne(settings->label);
    }
}

int run(const char *ini, bool foreground) {
    Settings settings;
    if (!loadSettings(ini, &settings)) return 1;
    if (VexDaemonStart(settings.pid_file.c_str(), foreground ? VEX_DAEMON_FOREGROUND : 0) != 0)
        return 1;
    int status = 1;
    {
        Server server;
        const int signals = openSignals();
        if (signals >= 0 && (settings.user.empty() || VexRunAsUser(settings.user.c_str()) == 0) &&
            server.open(settings.socket, settings.counter)) {
            InfoA(-1, "serving on %s", settings.socket.c_str());
            if (VexDaemonReady(0) == 0) serve(&server, signals, ini, &settings);
            InfoA(-1, "stopped");
            status = 0;
        } else {
            (void)VexDaemonReady(1);
        }
    }
    return VexDaemonStop() == 0 ? status : 1;
}

}  // namespace

int main(int argc, char **argv) {
    const zqutil::LibAutoInit library("counterd");
    _checkCommonArgs(&argc, argv, usage, "1.0", __DATE__, __TIME__, "Release");
    (void)vexLogSet(nullptr, VEX_LOG_PRESET_SHORT | VEX_LOG_STDERR_SEVERE, 0);
    char *ini = nullptr;
    bool foreground = false;
    opt_option ini_option{}, foreground_option{};
    ini_option.long_name = "ini";
    ini_option.type = OPT_TYPE_PATH;
    ini_option.flags = OPT_MANDATORY;
    ini_option.value = &ini;
    foreground_option.long_name = "foreground";
    foreground_option.type = OPT_TYPE_FLAG_ON;
    foreground_option.value = &foreground;
    opt_option *table[] = {&ini_option, &foreground_option, nullptr};
    int status = 2;
    char path[PATH_MAX];
    if (opt_parse(table, argc, argv) != argc) {
        usage(argv[0]);
    } else {
        // the daemon works in "/": what is named relative to here must stay reachable
        status = vex_path_resolve(ini, path, sizeof path) >= 0 ? run(path, foreground) : 1;
    }
    opt_free(table);
    return status;
}
