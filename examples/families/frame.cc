// frame VERSION LEAST [FILE]: succeeds when VERSION is LEAST or newer, as scripts ask before an
// upgrade, and appends the answer to FILE.
// Shows what every program on the library begins with: start-up, the switches that all tools share
// (--help, --version, --features, --os-test, --copyrights), versions and a lock between processes.
#include <cstdio>

#include <vex/frame.h>
#include <vex/log.h>
#include <vex/revision.h>

namespace {

void usage(const char *progname) {
    std::printf("\nUsage: %s VERSION LEAST [FILE]\n", progname);
}

/// Appends the answer to a file that several processes write: each waits for its turn.
bool record(const char *path, const char *line) {
    VexFileLock turn;
    if (!turn.Lock(std::string(path) + ".lock")) return false;  // reported
    std::FILE *const file = std::fopen(path, "ae");
    if (file == nullptr) {
        ErrorA(-1, "cannot open %s: %m", path);
        return false;
    }
    const bool written = std::fputs(line, file) >= 0;
    return std::fclose(file) == 0 && written;
}

int compare(const char *version, const char *least) {
    const AutoTrace trace("compare");  // "compare: enter" and "compare: exit" at level trace
    const bool newer = VersionCompare(version, least) >= 0;
    std::printf("%s is %s %s\n", version, newer ? "at least" : "older than", least);
    return newer ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
    // tells on standard error when the library at run time has another interface than this header
    if (_VexLibInit(argv[0], VEX_INTERFACE_VERSION) != 1) return 1;
    _checkCommonArgs(&argc, argv, usage, GetVEXVersion(), __DATE__, __TIME__, "Release");
    if (argc < 3) ShowUsage(argv, usage);

    int status = compare(argv[1], argv[2]);
    if (argc > 3 && !record(argv[3], status == 0 ? "good\n" : "old\n")) status = 2;
    return VexLibDestroy() == 0 ? status : 1;
}
