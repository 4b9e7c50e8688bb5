// fs SOURCE MIRROR: makes MIRROR a copy of SOURCE's directories and regular files. Files that are
// equal already are left alone, and each new one appears whole: it is copied under a temporary
// name, which FileCopy syncs, and then renamed into place.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include <vex/dir.h>
#include <vex/file.h>
#include <vex/frame.h>
#include <vex/io.h>
#include <vex/log.h>
#include <vex/path.h>

namespace {

struct Totals {
    unsigned long files = 0, copied = 0, failed = 0;
    int64_t bytes = 0;
};

bool copyFile(const char *from, const std::string &to, const std::string &folder, int mode,
              Totals *totals) {
    if (vex_access(to.c_str(), F_OK) == 0 && FileCompare(from, to.c_str()) == 0) return true;
    const std::string fresh = to + ".mirror-tmp";
    (void)unlink(fresh.c_str());  // of a run that was interrupted
    const int64_t size = FileCopy(from, fresh.c_str(), mode);
    if (size < 0) return false;
    if (rename_dirfsync(fresh.c_str(), to.c_str(), folder.c_str(), 0) != 0) return false;
    ++totals->copied;
    totals->bytes += size;
    return true;
}

/// One step of the walk; what fails has been logged, and the walk goes on.
bool mirror(const DirEntry &entry, size_t root, const std::string &target, Totals *totals) {
    const std::string path(entry.path, static_cast<size_t>(entry.pathlen));
    const std::string to = target + path.substr(root);
    switch (entry.info) {
        case DDS_D:
            return CreateTreeA(to.c_str(), entry.statp->st_mode & 0777) == 0;
        case DDS_F: {
            char folder[4096];
            ++totals->files;
            return vex_path_dirname(to.c_str(), folder, sizeof folder) >= 0 &&
                   copyFile(entry.accpath, to, folder, entry.statp->st_mode & 0777, totals);
        }
        case DDS_DNR:
        case DDS_ERR:
        case DDS_NS:
            ErrorA(entry.errno_value, "%s: %s", path.c_str(), DirGetStrerrorA(&entry));
            return false;
        default:
            return true;  // directories that were left, links, devices
    }
}

}  // namespace

int main(int argc, char **argv) {
    const zqutil::LibAutoInit library("fs");
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s SOURCE MIRROR\n", argv[0]);
        return 2;
    }
    const std::string source = vex_path_native(argv[1]);
    // DDS_NOCHDIR: the working directory stays, so that MIRROR may be a relative path
    DirStream *const walk = DirOpenA(source.c_str(), DDS_PHYSICAL | DDS_NOCHDIR, nullptr, 0);
    if (walk == nullptr) {
        ErrorA(-1, "cannot walk %s: %m", argv[1]);
        return 1;
    }
    Totals totals;
    while (const DirEntry *entry = DirGetNextA(walk))
        if (!mirror(*entry, source.size(), argv[2], &totals)) ++totals.failed;
    if (errno != 0) ++totals.failed;  // 0 is the end of the walk
    if (DirCloseA(walk) != 0) ++totals.failed;
    std::printf("%lu files, %lu copied, %lld bytes\n", totals.files, totals.copied,
                static_cast<long long>(totals.bytes));
    return totals.failed == 0 ? 0 : 1;
}
