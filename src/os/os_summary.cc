#include <errno.h>
#include <sys/resource.h>
#include <sys/sysinfo.h>
#include <sys/utsname.h>

#include <cstdint>
#include <string>

#include <vex/os.h>

#include "frame/process_state.h"
#include "log/report.h"

namespace {

constexpr const char *kUnknown = "unknown";

std::string megabytes(uint64_t units, uint64_t unit_size) {
    return std::to_string(units * unit_size >> 20) + " MB";
}

std::string limit(decltype(RLIMIT_NOFILE) resource) {
    struct rlimit value {};
    if (getrlimit(resource, &value) != 0) return kUnknown;
    return value.rlim_cur == RLIM_INFINITY ? "unlimited" : std::to_string(value.rlim_cur);
}

class Summary {
public:
    void line(const char *name, const std::string &value) {
        std::string padded(name);
        padded.resize(13, ' ');
        text_ += padded + ": " + value + "\n";
    }
    const std::string &text() const { return text_; }

private:
    std::string text_;
};

void describeSystem(Summary &summary) {
    struct utsname os {};
    const bool known = uname(&os) == 0;
    summary.line("System", known ? os.sysname : kUnknown);
    summary.line("Release", known ? os.release : kUnknown);
    summary.line("Machine", known ? os.machine : kUnknown);
    summary.line("Processors", std::to_string(vex::numCores()));
}

void describeMemory(Summary &summary) {
    struct sysinfo info {};
    const bool known = sysinfo(&info) == 0;
    summary.line("Memory", known ? megabytes(info.totalram, info.mem_unit) : kUnknown);
    summary.line("Swap", known ? megabytes(info.totalswap, info.mem_unit) : kUnknown);
    summary.line("Uptime", known ? std::to_string(info.uptime) + " s" : kUnknown);
}

}  // namespace

int OSTest(FILE *out) {
    return vex::guard(__func__, -1, [&] {
        Summary summary;
        describeSystem(summary);
        describeMemory(summary);
        summary.line("Open files", limit(RLIMIT_NOFILE));
        summary.line("Core size", limit(RLIMIT_CORE));
        summary.line("Locked memory", limit(RLIMIT_MEMLOCK));
        FILE *stream = out != nullptr ? out : stdout;
        if (fputs(summary.text().c_str(), stream) < 0 || fflush(stream) != 0)
            return VEX_FAIL_AS("OSTest", errno, errno, -1, "could not write: %m");
        return 0;
    });
}
