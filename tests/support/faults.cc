#include "support/faults.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>

#include "support/child.h"

namespace vextest {
namespace {

thread_local FaultScope *active = nullptr;
constexpr unsigned kMostRuns = 100000;

}  // namespace

FaultScope::FaultScope(std::vector<std::string> calls, unsigned nth, int err, Reach reach)
    : calls_(std::move(calls)), nth_(nth), err_(err), reach_(reach), outer_(active) {
    faulted_.reserve(64);  // faultFor must not allocate
    active = this;
}

FaultScope::~FaultScope() { active = outer_; }

FaultPause::FaultPause() : saved_(active) { active = nullptr; }
FaultPause::~FaultPause() { active = saved_; }

int faultFor(const char *call) {
    // scopes nest: the innermost that has something to say decides
    for (FaultScope *scope = active; scope != nullptr; scope = scope->outer_) {
        bool named = false;
        for (const auto &one : scope->calls_) named = named || std::strcmp(one.c_str(), call) == 0;
        if (!named) continue;
        ++scope->seen_;
        if (scope->seen_ != scope->nth_ && !(scope->reach_ == FaultScope::kLasting && scope->seen_ > scope->nth_))
            continue;
        scope->fired_ = true;
        scope->faulted_ = call;
        if (scope->err_ == FaultScope::kCrash) _exit(FaultScope::kCrashStatus);
        return scope->err_;
    }
    return 0;
}

unsigned forEachFault(
    const std::vector<std::string> &calls, int err, const std::function<void(const FaultScope &)> &scenario) {
    for (unsigned nth = 1; nth < kMostRuns; ++nth) {
        SCOPED_TRACE("fault number " + std::to_string(nth));
        FaultScope scope(calls, nth, err);
        scenario(scope);
        if (!scope.fired()) return nth - 1;
    }
    ADD_FAILURE() << "the scenario never ran without a fault";
    return kMostRuns;
}

unsigned forEachCrash(const std::vector<std::string> &calls, const std::function<void()> &body,
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
