#include "log/context.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <vex/log_file.h>

#include "base/environment.h"
#include "base/native_path.h"
#include "log/config.h"

namespace vex::log {
namespace {

/// The log's process-wide state besides its configuration; everything in it is guarded by `mutex`.
struct Contexts {
    pthread_mutex_t mutex = PTHREAD_ERRORCHECK_MUTEX_INITIALIZER_NP;
    pthread_once_t key_once = PTHREAD_ONCE_INIT;
    pthread_key_t key = 0;
    bool has_key = false;  ///< without one contexts outlive their threads
    int live = 0;
    vexLogCtx fallback = {.path = {},
                          .line = {},
                          .last = {},
                          .fatal = {},
                          .process = {},
                          .label = {},
                          .tag = ": ",
                          .flags = 0,
                          .base_code = 0,
                          .number = 0,
                          .redirector = nullptr,
                          .redirecting = false,
                          .installed = 0,
                          .stamp = {}};
};

constinit Contexts contexts;
constinit thread_local vexLogCtx *current = nullptr;

void copyText(char *to, size_t size, const char *from) {
    const size_t length = strnlen(from, size - 1);
    memcpy(to, from, length);
    to[length] = '\0';
}

void setTag(vexLogCtx *ctx) {
    (void)snprintf(ctx->tag, sizeof ctx->tag,
                   " [%lu]: ", static_cast<unsigned long>(pthread_self()));
}

/// The caller holds the set-up lock.
void destroy(vexLogCtx *ctx) {
    if (ctx == &contexts.fallback) return;
    free(ctx);
    --contexts.live;
}

void onThreadExit(void *value) {
    auto *ctx = static_cast<vexLogCtx *>(value);
    current = nullptr;
    SetupLock lock;
    if (--ctx->installed == 0) destroy(ctx);
}

void makeKey() {
    contexts.has_key = pthread_key_create(&contexts.key, onThreadExit) == 0;
}

void install(vexLogCtx *ctx) {
    pthread_once(&contexts.key_once, makeKey);
    if (current != nullptr) --current->installed;
    current = ctx;
    if (ctx != nullptr) ++ctx->installed;
    if (contexts.has_key) pthread_setspecific(contexts.key, ctx);
}

vexLogCtx *fallBack() {
    (void)fprintf(stderr,
                  "ALERT: Could not establish a logging context: malloc failed for %u bytes (%m). "
                  "Using the default "
                  "logging context instead.\n",
                  static_cast<unsigned>(sizeof(vexLogCtx)));
    vexLogCtx *ctx = defaultContext();
    setTag(ctx);
    return ctx;
}

/// What the first thread set up serves the threads that come to log without a set-up of their own.
void inherit(vexLogCtx *ctx) {
    const vexLogCtx &from = contexts.fallback;
    ctx->redirector = from.redirector;
    ctx->base_code = from.base_code;
    if (from.process[0] != '\0') copyText(ctx->process, sizeof ctx->process, from.process);
    char path[kPathSize];
    copyText(path, sizeof path, from.path);
    applySettings(ctx, path, config().flags(), config().syslogMask(), nullptr);
}

vexLogCtx *create(Creation creation) {
    auto *ctx = static_cast<vexLogCtx *>(calloc(1, sizeof(vexLogCtx)));
    if (ctx == nullptr) return fallBack();
    setTag(ctx);
    copyText(ctx->process, sizeof ctx->process, processName());
    SetupLock lock;
    install(ctx);
    const bool first = contexts.live == 0;
    ctx->number = ++contexts.live;
    if (creation == Creation::kByMessage && !first) inherit(ctx);
    return ctx;
}

}  // namespace

SetupLock::SetupLock() : held_(pthread_mutex_lock(&contexts.mutex) == 0) {}

SetupLock::~SetupLock() {
    if (held_) pthread_mutex_unlock(&contexts.mutex);
}

vexLogCtx *context(Creation creation) {
    return current != nullptr ? current : create(creation);
}

vexLogCtx *contextIfAny() {
    return current;
}

vexLogCtx *defaultContext() {
    if (contexts.fallback.process[0] == '\0')
        copyText(contexts.fallback.process, sizeof contexts.fallback.process, processName());
    return &contexts.fallback;
}

FatalSlot *fatalSlot(bool create) {
    vexLogCtx *ctx = create ? context(Creation::kByMessage) : contextIfAny();
    return ctx != nullptr ? &ctx->fatal : nullptr;
}

void applySettings(vexLogCtx *ctx, const char *path, int flags, int syslogMask, const char *label) {
    copyText(ctx->path, sizeof ctx->path, path != nullptr ? path : "");
    toNativePath(ctx->path);
    const bool first = ctx->number == 1;
    config().Init(flags, syslogMask, first);
    ctx->flags = static_cast<unsigned>(flags);
    if (first && ctx != &contexts.fallback) {
        contexts.fallback = *ctx;
        contexts.fallback.number = 0;  // it stands in for others; it is never the first itself
        contexts.fallback.installed = 0;
        contexts.fallback.redirecting = false;  // a redirector may set the log up
    }
    copyText(ctx->label, sizeof ctx->label, label != nullptr ? label : "");
}

}  // namespace vex::log

using namespace vex::log;

extern "C" {

vexLogCtx *vexLogGetCtx(void) {
    return contextIfAny();
}

void vexLogSetCtx(vexLogCtx *ctx) {
    SetupLock lock;
    install(ctx);
}

void vexLogCtxDestroy(vexLogCtx *ctx) {
    if (ctx == nullptr || ctx == &contexts.fallback) return;
    SetupLock lock;
    if (ctx == current) install(nullptr);
    destroy(ctx);
}

void vexlog_reset_for_fork(void) {
    // only the forking thread lives on; whoever held the lock is gone
    pthread_mutex_t fresh = PTHREAD_ERRORCHECK_MUTEX_INITIALIZER_NP;
    memcpy(&contexts.mutex, &fresh, sizeof fresh);
    logFileReset();
}

}  // extern "C"
