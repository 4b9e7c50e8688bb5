#ifndef VEXTEST_FAULTS_H
#define VEXTEST_FAULTS_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "support/child.h"

namespace vextest {

/// Makes the nth matching call of the calling thread fail with an errno. The calls are those of support/wrap.cc;
/// "new" stands for operator new. Scopes nest: those around it hold as well.
class FaultScope {
public:
    /// As err: the call transfers only its first byte (read, write, pread, pwrite, fread, fwrite).
    static constexpr int kShort = -1;
    /// As err: the process ends at once, before the call, as a power cut would end it. For a child process.
    static constexpr int kCrash = -2;
    static constexpr int kCrashStatus = 86;
    /// kLasting: every matching call from the nth on fails, not the nth alone.
    enum Reach { kOnce, kLasting };

    FaultScope(std::vector<std::string> calls, unsigned nth, int err, Reach reach = kOnce)
        : calls_(std::move(calls)), nth_(nth), err_(err), reach_(reach) {
        faulted_.reserve(64);  // faultFor must not allocate
        active_ = this;
    }
    FaultScope(const char *call, unsigned nth, int err, Reach reach = kOnce)
        : FaultScope(std::vector<std::string>{call}, nth, err, reach) {}
    ~FaultScope() { active_ = outer_; }
    FaultScope(const FaultScope &) = delete;

    void keepFailing() { reach_ = kLasting; }
    /// True once a call was made to fail; faultedCall() names it.
    bool fired() const { return fired_; }
    const std::string &faultedCall() const { return faulted_; }

    /// For the wrappers: 0 = make the real call, kShort, or the errno to fail with.
    static int faultFor(const char *call) {
        // the innermost that has something to say decides
        for (FaultScope *scope = active_; scope != nullptr; scope = scope->outer_) {
            const auto &calls = scope->calls_;
            if (std::find(calls.begin(), calls.end(), call) == calls.end() || !scope->falls()) continue;
            scope->fired_ = true;
            scope->faulted_ = call;
            if (scope->err_ == kCrash) _exit(kCrashStatus);
            return scope->err_;
        }
        return 0;
    }

private:
    friend class FaultPause;

    bool falls() { return ++seen_ == nth_ || (reach_ == kLasting && seen_ > nth_); }

    inline static thread_local FaultScope *active_ = nullptr;
    FaultScope *const outer_ = active_;
    const std::vector<std::string> calls_;
    const unsigned nth_;
    const int err_;
    Reach reach_;
    unsigned seen_ = 0;
    bool fired_ = false;
    std::string faulted_;
};

/// Lifts all faults while it lives: for the checks inside a scenario.
class FaultPause {
public:
    FaultPause() : saved_(std::exchange(FaultScope::active_, nullptr)) {}
    ~FaultPause() { FaultScope::active_ = saved_; }
    FaultPause(const FaultPause &) = delete;

private:
    FaultScope *const saved_;
};

/// Runs @p scenario with the first, second, third … of the named calls failing, until a run meets no fault.
/// The scenario checks its promise itself; it gets the scope to ask what failed. Set-up that must not fail goes
/// before it. Returns how many runs met a fault, so that a test can see that the harness did bite.
inline unsigned forEachFault(
    const std::vector<std::string> &calls, int err, const std::function<void(const FaultScope &)> &scenario) {
    for (unsigned nth = 1;; ++nth) {
        SCOPED_TRACE("fault number " + std::to_string(nth));
        FaultScope scope(calls, nth, err);
        scenario(scope);
        if (!scope.fired()) return nth - 1;
    }
}

/// Runs the body in children that end at the first, second, third … of the named calls, as a power cut would end them,
/// and each time what is to be checked then, until one ends by itself. Returns how many did not.
inline unsigned forEachCrash(const std::vector<std::string> &calls, const std::function<void()> &body,
    const std::function<void(bool crashed)> &check) {
    unsigned nth = 1;
    for (bool crashed = true; crashed; ++nth) {
        SCOPED_TRACE("crash number " + std::to_string(nth));
        const auto child = runChild([&] {
            const FaultScope fault(calls, nth, FaultScope::kCrash);
            body();
        });
        crashed = child.exit_status == FaultScope::kCrashStatus;
        check(crashed);
    }
    return nth - 2;
}

}  // namespace vextest

#endif
