#include "fatal_signal.h"

#include <csignal>
#include <initializer_list>

namespace tool {
namespace {

void (*volatile on_signal)() = nullptr;

void cleanUpAndDie(int signal) {
    if (on_signal != nullptr) on_signal();
    (void)raise(signal);  // its default action is back and ends the process
}

}  // namespace

void onFatalSignal(void (*clean_up)()) {
    on_signal = clean_up;
    if (clean_up == nullptr) return;
    for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTERM}) {
        struct sigaction action {};
        if (sigaction(signal, nullptr, &action) != 0 || action.sa_handler != SIG_DFL) continue;
        action.sa_handler = cleanUpAndDie;
        action.sa_flags = static_cast<int>(SA_RESETHAND);
        (void)sigaction(signal, &action, nullptr);  // cannot fail for these
    }
}

}  // namespace tool
