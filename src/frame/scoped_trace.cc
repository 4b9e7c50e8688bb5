#include <vex/frame.h>
#include <vex/log.h>

AutoTrace::AutoTrace(const std::string &name) : name_(name) {
    if (TraceOn()) __Trace("%s: enter", name_.c_str());
}

AutoTrace::~AutoTrace() {
    if (TraceOn()) __Trace("%s: exit", name_.c_str());
}

AutoDebug::AutoDebug(int level, const std::string &name) : level_(level), name_(name) {}

AutoDebug::~AutoDebug() = default;

int AutoDebug::level() const {
    return level_;
}

const std::string &AutoDebug::name() const {
    return name_;
}
