#include "os/cgroup.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "os/small_file.h"

namespace vex::os {
namespace {

// version 1 says "no limit" with the largest number of whole pages
constexpr uint64_t kUnlimitedV1 = 0x7fffffffffff0000;

/// The number at the head of a text; false for "max", "-1" and everything else.
bool numberAt(std::string_view text, uint64_t *number) {
    return std::from_chars(text.data(), text.data() + text.size(), *number).ec == std::errc{};
}

/// Reads the limits of one group and of all above it, of which the lowest holds.
class Reader {
public:
    explicit Reader(const std::string &root) : root_(root) {}

    /// One line of /proc/self/cgroup: "number:controllers:path".
    void line(std::string_view text) {
        const size_t first = text.find(':'), second = text.find(':', first + 1);
        if (first == std::string_view::npos || second == std::string_view::npos) return;
        const std::string_view controllers = text.substr(first + 1, second - first - 1);
        const std::string path(text.substr(second + 1));
        if (controllers.empty()) {
            upward("", path, [this](const std::string &group) { versionTwo(group); });
            return;
        }
        if (has(controllers, "memory"))
            upward("memory", path, [this](const std::string &group) { memoryOne(group); });
        if (has(controllers, "cpu"))
            upward("cpu", path, [this](const std::string &group) { processorsOne(group); });
    }
    const CgroupLimits &limits() const { return limits_; }

private:
    static bool has(std::string_view controllers, std::string_view name) {
        for (;;) {
            const size_t comma = controllers.find(',');
            if (controllers.substr(0, comma) == name) return true;
            if (comma == std::string_view::npos) return false;
            controllers.remove_prefix(comma + 1);
        }
    }

    template <typename Read>
    void upward(const std::string &controller, std::string path, Read read) {
        const std::string mount = root_ + "/sys/fs/cgroup/" + controller;
        for (; !path.empty(); path.resize(std::min(path.rfind('/'), path.size())))
            read(mount + path + "/");
        read(mount + "/");
    }

    void versionTwo(const std::string &group) {
        std::string text;
        uint64_t value, period;
        if (readSmallFile(group + "memory.max", &text) && numberAt(text, &value)) memory(value);
        if (!readSmallFile(group + "cpu.max", &text) || !numberAt(text, &value)) return;
        const size_t blank = text.find(' ');
        if (blank != std::string::npos &&
            numberAt(std::string_view(text).substr(blank + 1), &period))
            processors(value, period);
    }

    void memoryOne(const std::string &group) {
        std::string text;
        uint64_t value;
        if (readSmallFile(group + "memory.limit_in_bytes", &text) && numberAt(text, &value) &&
            value < kUnlimitedV1)
            memory(value);
    }

    void processorsOne(const std::string &group) {
        std::string quota, period;
        uint64_t quota_us, period_us;
        if (readSmallFile(group + "cpu.cfs_quota_us", &quota) && numberAt(quota, &quota_us) &&
            readSmallFile(group + "cpu.cfs_period_us", &period) && numberAt(period, &period_us))
            processors(quota_us, period_us);
    }

    void memory(uint64_t bytes) { limits_.memory = std::min(limits_.memory, bytes); }
    void processors(uint64_t quota, uint64_t period) {
        if (period == 0) return;
        const double share = static_cast<double>(quota) / static_cast<double>(period);
        limits_.processors = limits_.processors == 0 ? share : std::min(limits_.processors, share);
    }

    const std::string &root_;
    CgroupLimits limits_;
};

}  // namespace

CgroupLimits readCgroupLimits(const std::string &root) {
    Reader reader(root);
    std::string text;
    if (!readSmallFile(root + "/proc/self/cgroup", &text)) return reader.limits();
    for (std::string_view rest = text; !rest.empty();) {
        const size_t end = std::min(rest.find('\n'), rest.size());
        reader.line(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return reader.limits();
}

}  // namespace vex::os
