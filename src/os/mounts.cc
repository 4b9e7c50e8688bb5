// Mounts, as /proc/self/mountinfo lists them (proc(5)), and the room of file systems.
#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <vex/os.h>
#include <vex/path.h>
#include <vex/text.h>

#include "base/eintr.h"
#include "base/unique_ptr.h"
#include "log/report.h"
#include "os/mount_line.h"
#include "os/small_file.h"

namespace vex::os {
namespace {

/// Undoes the escapes of blank, tab, line feed and backslash: a backslash and three octal digits.
std::string unescape(std::string_view text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool escape = text[i] == '\\' && i + 3 < text.size() &&
                            text.find_first_not_of("01234567", i + 1) >= i + 4;
        if (!escape) {
            out += text[i];
            continue;
        }
        const int byte = (text[i + 1] - '0') << 6 | (text[i + 2] - '0') << 3 | (text[i + 3] - '0');
        out += static_cast<char>(byte);
        i += 3;
    }
    return out;
}

template <size_t kRoom>
void put(char (&to)[kRoom], const std::string &text) {
    (void)vex_strcpy(to, kRoom, text.c_str());  // what is longer keeps its head
}

}  // namespace

bool parseMountLine(const std::string &line, VexMountInfo *info) {
    std::vector<std::string> fields;
    if (vex_str_split(line.c_str(), " ", fields) != 0) return false;
    // behind the sixth stand optional fields up to a hyphen
    size_t dash = 6;
    while (dash < fields.size() && fields[dash] != "-") ++dash;
    unsigned major_number, minor_number;
    if (dash + 3 >= fields.size() ||
        sscanf(fields[2].c_str(), "%u:%u", &major_number, &minor_number) != 2)
        return false;
    put(info->device, unescape(fields[dash + 2]));
    put(info->directory, unescape(fields[4]));
    put(info->type, fields[dash + 1]);
    put(info->options, fields[5] + "," + fields[dash + 3]);
    info->dev = makedev(major_number, minor_number);
    return true;
}

namespace {

/// Hands each mount to @p take, in the kernel's order; 0, or -1 after reporting.
template <typename Take>
int eachMount(const char *who, VexMountInfo *info, Take take) {
    std::string text;
    std::vector<std::string> lines;
    if (!readSmallFile("/proc/self/mountinfo", &text))
        return VEX_FAIL_AS(who, errno, errno, -1, "could not read /proc/self/mountinfo: %m");
    if (vex_str_split(text.c_str(), "\n", lines) != 0) return -1;
    for (const std::string &line : lines)
        if (parseMountLine(line, info) && !take(*info))
            return VEX_FAIL_AS(who, ENOMEM, ENOMEM, -1, "could not allocate memory");
    return 0;
}

}  // namespace
}  // namespace vex::os

using vex::os::eachMount;

int VexGetMountInfo(const char *path, struct VexMountInfo *info) {
    if (path == nullptr || info == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    return vex::guard(__func__, -1, [&] {
        constexpr char kWho[] = "VexGetMountInfo";
        char resolved[PATH_MAX];
        if (vex_path_resolve(path, resolved, sizeof resolved) < 0)
            return VEX_FAIL_AS(kWho, errno, errno, -1, "could not resolve path %s: %m", path);
        const auto best = std::make_unique<VexMountInfo>(), one = std::make_unique<VexMountInfo>();
        const int result = eachMount(kWho, one.get(), [&](const VexMountInfo &mount) {
            if (vex_path_is_below(resolved, mount.directory) != 0 &&
                strlen(mount.directory) >= strlen(best->directory))
                *best = mount;
            return true;
        });
        if (result != 0) return -1;
        if (best->directory[0] == '\0')
            return VEX_FAIL_AS(kWho, ENOENT, ENOENT, -1, "no mount found for path %s", path);
        *info = *best;
        return 0;
    });
}

vexList *VexMountListCreate() {
    return vex::guard(__func__, static_cast<vexList *>(nullptr), []() -> vexList * {
        vexList *const list = vexListCreate();
        if (list == nullptr) return nullptr;
        const auto one = std::make_unique<VexMountInfo>();
        const int result =
            eachMount("VexMountListCreate", one.get(), [&](const VexMountInfo &mount) {
                vex::UniqueMalloc<VexMountInfo> copy(
                    static_cast<VexMountInfo *>(malloc(sizeof mount)));
                if (!copy) return false;
                *copy = mount;
                if (vexListAdd(list, copy.get()) != 0) return false;
                (void)copy.release();  // the list's
                return true;
            });
        if (result == 0) return list;
        VexMountListDestroy(list);
        return nullptr;
    });
}

void VexMountListDestroy(vexList *list) {
    vexListDestroy(list, free);
}

int VexGetFsInfo(const char *path, struct VexFsInfo *info) {
    if (path == nullptr || info == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    struct statvfs fs {};
    if (vex::retryOnEintr([&] { return statvfs(path, &fs); }) != 0)
        return VEX_FAIL(errno, -1, "could not stat the file system of %s: %m", path);
    const uint64_t unit = fs.f_frsize != 0 ? fs.f_frsize : fs.f_bsize;
    *info = {fs.f_blocks * unit,
             fs.f_bfree * unit,
             fs.f_bavail * unit,
             fs.f_files,
             fs.f_ffree,
             fs.f_bsize,
             (fs.f_flag & ST_RDONLY) != 0 ? 1 : 0};
    return 0;
}
