// Setting a thread's log up and taking it down.
#include <atomic>

#include <vex/log.h>
#include <vex/log_file.h>

#include "log/config.h"
#include "log/context.h"

using namespace vex::log;

namespace {

constinit std::atomic<size_t> process_max_size = 0;

int setUp(const char *path, int flags, int syslogMask, const char *label) {
    vexLogCtx *ctx = context(Creation::kBySetup);
    SetupLock lock;
    applySettings(ctx, path, flags, syslogMask, label);
    return 0;
}

}  // namespace

extern "C" {

int vexLogSet(const char *path, int flags, int syslogMask) {
    return setUp(path, flags, syslogMask, nullptr);
}

int vexLogSetEx(const char *path, int flags, int syslogMask, void *, const char *label) {
    return setUp(path, flags, syslogMask, label);
}

int vexLogClose(void) {
    (void)setUp(nullptr, 0, 0, nullptr);  // always 0
    logFileFlushStreams();
    return 0;
}

int vexLogDestroy(void) {
    const SetupLock lock;
    config().Reset();
    return 0;
}

void vexLogSetFlags(int flags, int syslogMask) {
    config().SetFlags(flags, syslogMask);
}

void vexLogGetFlags(int *flags, int *syslogMask) {
    if (flags != nullptr) *flags = config().flags();
    if (syslogMask != nullptr) *syslogMask = config().syslogMask();
}

void vexLogSetBaseCode(int baseCode) {
    context(Creation::kByMessage)->base_code = baseCode;
}

void vexLogSetRedirector(vexLogRedirector fn) {
    context(Creation::kByMessage)->redirector = fn;
}

void vexLogSetProcessMaxSize(size_t n) {
    process_max_size = n;
    logFileSetMaxSize(n);
    InfoA(-1, "set entire process max log size to %lu", n);
}

void vexLogSetMaxSize(size_t n) {
    vexLogSetProcessMaxSize(n);
}

size_t vexLogGetProcessMaxSize(size_t *out) {
    const size_t n = process_max_size;
    if (out != nullptr) *out = n;
    return n;
}

size_t vexLogGetMaxSize(size_t *out) {
    return vexLogGetProcessMaxSize(out);
}

}  // extern "C"
