#ifndef VEXTEST_FAULTS_H
#define VEXTEST_FAULTS_H

#include <functional>
#include <string>
#include <vector>

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

    FaultScope(std::vector<std::string> calls, unsigned nth, int err, Reach reach = kOnce);
    FaultScope(const char *call, unsigned nth, int err, Reach reach = kOnce)
        : FaultScope(std::vector<std::string>{call}, nth, err, reach) {}
    ~FaultScope();
    FaultScope(const FaultScope &) = delete;
    FaultScope &operator=(const FaultScope &) = delete;

    void keepFailing() { reach_ = kLasting; }
    /// True once a call was made to fail; faultedCall() names it.
    bool fired() const { return fired_; }
    const std::string &faultedCall() const { return faulted_; }

private:
    friend int faultFor(const char *call);
    std::vector<std::string> calls_;
    unsigned nth_;
    int err_;
    unsigned seen_ = 0;
    Reach reach_;
    bool fired_ = false;
    std::string faulted_;
    FaultScope *outer_;
};

/// For the wrappers: 0 = make the real call, FaultScope::kShort, or the errno to fail with.
int faultFor(const char *call);

/// Runs @p scenario with the first, second, third … of the named calls failing, until a run meets no fault.
/// The scenario checks its promise itself; it gets the scope to ask what failed. Set-up that must not fail goes
/// before it. Returns how many runs met a fault, so that a test can see that the harness did bite.
unsigned forEachFault(
    const std::vector<std::string> &calls, int err, const std::function<void(const FaultScope &)> &scenario);

/// Runs the body in children that end at the first, second, third … of the named calls, as a power cut would end them,
/// and each time what is to be checked then, until one ends by itself. Returns how many did not.
unsigned forEachCrash(const std::vector<std::string> &calls, const std::function<void()> &body,
    const std::function<void(bool crashed)> &check);

/// Lifts all faults while it lives: for the checks inside a scenario.
class FaultPause {
public:
    FaultPause();
    ~FaultPause();
    FaultPause(const FaultPause &) = delete;
    FaultPause &operator=(const FaultPause &) = delete;

private:
    FaultScope *saved_;
};

}  // namespace vextest

#endif
