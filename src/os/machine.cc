// Memory and processors.
#include <errno.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include <vex/os.h>
#include <vex/text.h>

#include "frame/process_state.h"
#include "log/report.h"
#include "os/cgroup.h"
#include "os/small_file.h"

namespace {

/// The value behind "name:" at the start of a line of @p text, or an empty text.
std::string_view valueOf(std::string_view text, std::string_view name) {
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        std::string_view line = text.substr(at, end - at);
        at = end + 1;
        if (line.substr(0, name.size()) != name) continue;
        line.remove_prefix(name.size());
        line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
        if (line.empty() || line.front() != ':') continue;
        line.remove_prefix(std::min(line.find_first_not_of(" \t", 1), line.size()));
        return line;
    }
    return {};
}

uint64_t kilobytes(const std::string &text, std::string_view name) {
    const std::string value(valueOf(text, name));
    return strtoull(value.c_str(), nullptr, 10) * 1024;
}

uint64_t residentSize() {
    std::string text;
    if (!vex::os::readSmallFile("/proc/self/statm", &text)) return 0;
    const size_t blank = text.find(' ');
    if (blank == std::string::npos) return 0;
    return strtoull(text.c_str() + blank, nullptr, 10) *
           static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

uint32_t allowedProcessors(uint32_t online) {
    cpu_set_t set;
    if (sched_getaffinity(0, sizeof set, &set) != 0) return online;
    return static_cast<uint32_t>(std::max(1, CPU_COUNT(&set)));
}

}  // namespace

int VexGetMemoryInfo(struct VexMemoryInfo *info) {
    if (info == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    return vex::guard(__func__, -1, [&] {
        std::string text;
        if (!vex::os::readSmallFile("/proc/meminfo", &text))
            return VEX_FAIL_AS("VexGetMemoryInfo", errno, errno, -1,
                               "could not read /proc/meminfo: %m");
        *info = {kilobytes(text, "MemTotal"),
                 kilobytes(text, "MemAvailable"),
                 kilobytes(text, "SwapTotal"),
                 kilobytes(text, "SwapFree"),
                 residentSize(),
                 vex::os::readCgroupLimits("").memory};
        return 0;
    });
}

int VexGetProcessorInfo(struct VexProcessorInfo *info) {
    if (info == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    return vex::guard(__func__, -1, [&] {
        std::string text;
        *info = {vex::numCores(), 1, vex::os::readCgroupLimits("").processors, ""};
        info->allowed = allowedProcessors(info->online);
        if (vex::os::readSmallFile("/proc/cpuinfo", &text)) {
            const std::string model(valueOf(text, "model name"));
            (void)vex_strcpy(info->model, sizeof info->model, model.c_str());  // its head will do
        }
        return 0;
    });
}
