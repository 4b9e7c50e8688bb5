#include "support/log_capture.h"

#include "support/faults.h"

namespace vextest {
namespace {

thread_local LogCapture *current = nullptr;

}  // namespace

LogCapture::LogCapture(Levels levels) : outer_(current) {
    vexLogGetFlags(&flags_, &mask_);
    vexLogSetFlags(levels | VEX_LOG_NO_OUTPUT, 0);
    vexLogSetRedirector(&LogCapture::receive);
    current = this;
}

LogCapture::~LogCapture() {
    current = outer_;
    vexLogSetRedirector(outer_ != nullptr ? &LogCapture::receive : nullptr);
    vexLogSetFlags(flags_, mask_);
}

void LogCapture::receive(int level, int code, const char *message, int saved_errno) {
    const FaultPause pause;  // what is collected here is not the library's to allocate
    if (current != nullptr) current->entries_.push_back({level, code, message, saved_errno});
}

std::vector<std::string> LogCapture::lines() const { return lines(VEX_LOG_CRIT | VEX_LOG_ERR | VEX_LOG_WARN); }

std::vector<std::string> LogCapture::lines(int levels) const {
    std::vector<std::string> result;
    for (const auto &entry : entries_) {
        if ((entry.level & levels) == 0) continue;
        result.push_back(entry.code == -1 ? entry.text : std::to_string(entry.code) + " " + entry.text);
    }
    return result;
}

std::string LogCapture::text() const {
    std::string result;
    for (const auto &line : lines()) result += (result.empty() ? "" : "\n") + line;
    return result;
}

std::string LogCapture::take() {
    std::string result = text();
    clear();
    return result;
}

}  // namespace vextest
