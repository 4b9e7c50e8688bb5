// The switches that every tool on the library accepts; all the informational ones end the process
// with status 1.
#include <zlib.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <vex/frame.h>
#include <vex/log.h>
#include <vex/os.h>
#include <vex/revision.h>

#include "frame/build_stamp.h"

namespace {

/// How every informational switch ends: scripts must not take it for the tool's success.
[[noreturn]] void finish() {
    (void)VexLibDestroy();
    std::exit(1);  // NOLINT(concurrency-mt-unsafe): what the switches are for
}

/// Takes the first "--noversioncheck" out of argv; whether there was one.
bool takeNoVersionCheck(int *argc, char **argv) {
    if (*argc < 2) return false;
    char **at = argv + 1;
    while (*at != nullptr && std::strcmp(*at, "--noversioncheck") != 0) ++at;
    if (*at == nullptr) return false;
    for (; *at != nullptr; ++at) *at = at[1];
    --*argc;
    return true;
}

}  // namespace

void _checkCommonArgs(int *argc, char **argv, usageFn usage, const char *version,
                      const char *buildDate, const char *buildTime, const char *flavour) {
    if (argc == nullptr || argv == nullptr || usage == nullptr || version == nullptr ||
        buildDate == nullptr || buildTime == nullptr || flavour == nullptr) {
        ErrorA(EINVAL, "%s: invalid NULL parameter", "_checkCommonArgs");
        finish();
    }
    const char *progname = GetProgramName(argv[0]);
    if (!takeNoVersionCheck(argc, argv) && CheckVEXVersion(version) == 0)
        WarningA(EINVAL, "%s: Version mismatch: %s is version %s while libvex is version %s",
                 "_checkCommonArgs", progname, version, VEX_PRODUCT_VERSION);
    if (*argc < 2) return;
    for (char **at = argv + 1; *at != nullptr; ++at) {
        if (std::strcmp(*at, "--help") == 0) ShowUsage(argv, usage);
        if (std::strcmp(*at, "--features") == 0)
            _showFeatures(version, buildDate, buildTime, flavour);
        if (std::strcmp(*at, "--os-test") == 0) {
            (void)OSTest(nullptr);
            finish();
        }
        if (std::strcmp(*at, "--version") == 0) _showVersion(progname, version);
        if (std::strcmp(*at, "--copyrights") == 0) {
            ShowCopyrights();
            finish();
        }
    }
}

void ShowUsage(char **argv, usageFn usage) {
    const char *progname = GetProgramName(argv != nullptr ? argv[0] : nullptr);
    std::printf("This is %s, Version %s\n\n", progname, VEX_PRODUCT_VERSION);
    ShowCopyrights();
    if (usage != nullptr) usage(progname);
    std::fputs(
        "\n\nCommon Options:\n"
        "\t--copyrights     : display applicable copyrights and exit\n"
        "\t--features       : display features and settings\n"
        "\t--os-test        : display OS summary\n"
        "\t--version        : display program version number and exit\n"
        "\t--help           : display this help and exit\n"
        "\t--noversioncheck : Disable verification that this application is linked against the "
        "right version of the VEX library.\n\n",
        stdout);
    finish();
}

void _showVersion(const char *progname, const char *version) {
    std::printf("This is %s, Version %s\n", progname, version);
    finish();
}

void _showFeatures(const char *version, const char *buildDate, const char *buildTime,
                   const char *flavour) {
    const vex::BuildStamp &stamp = vex::kBuildStamp;
    const unsigned long flags = zlibCompileFlags();
    constexpr unsigned long kFastest = 1UL << 21;
    std::printf("Version          : %s-%s\n", version, flavour);
    std::printf("Build Date       : %s, %s\n", buildDate, buildTime);
    std::printf("libvex Version   : %s-Release\n", VEX_PRODUCT_VERSION);
    std::printf("libvex Build Date: %s, %s\n", stamp.date, stamp.time);
    std::printf("Compiler         : %s %i.%i\n", stamp.compiler, stamp.compiler_major,
                stamp.compiler_minor);
    std::printf("Large Files      : Supported (64bit OS)\n");
    std::printf("Zlib             : version %s, compile flags %08x (FASTEST %senabled)\n",
                zlibVersion(), static_cast<unsigned>(flags), (flags & kFastest) != 0 ? "" : "not ");
    finish();
}

void ShowCopyrights() {
    ShowCopyrights2(stdout);
}

void ShowCopyrights2(FILE *out) {
    if (out == nullptr) return;
    std::fputs(
        "Copyright (c) Corvane. All rights reserved.\n"
        "Legal notices of other parties' components: see the legal notices on the vendor's web "
        "site.\n",
        out);
}

const char *GetProgramName(const char *argv0) {
    if (argv0 == nullptr) return "";
    const char *slash = std::strrchr(argv0, '/');
    return slash != nullptr ? slash + 1 : argv0;
}
