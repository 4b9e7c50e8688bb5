// What the commands of the companion tool share.
#ifndef VEX_TOOL_COMMAND_H
#define VEX_TOOL_COMMAND_H

#include <vex/vex.h>

namespace tool {

enum ExitStatus { kSuccess = 0, kFailure = 1, kUsage = 2 };

struct Command {
    const char *name;                   ///< "seal"; commands of two words are one command ("id")
    const char *synopsis;               ///< what follows the name in the usage text
    const char *summary;                ///< one line of help
    int (*run)(int argc, char **argv);  ///< argv[0] is the command's name; returns an ExitStatus
};

int runKeygen(int argc, char **argv);
int runSeal(int argc, char **argv);
int runOpen(int argc, char **argv);
int runIndex(int argc, char **argv);
int runInfo(int argc, char **argv);
int runDigest(int argc, char **argv);
int runUid(int argc, char **argv);
int runId(int argc, char **argv);
int runIni(int argc, char **argv);
int runSize(int argc, char **argv);
int runSort(int argc, char **argv);
int runPasswd(int argc, char **argv);
int runPasswdStore(int argc, char **argv);
int runOs(int argc, char **argv);
int runWalk(int argc, char **argv);
int runHttp(int argc, char **argv);
int runRegistry(int argc, char **argv);
int runCloud(int argc, char **argv);
int runNet(int argc, char **argv);

/// Tells the person at the terminal what went wrong and what to do next, as "vex: <text>" on
/// standard error, and logs it; returns kFailure.
int fail(const char *format, ...) VEX_PRINTF(1, 2);
/// The same for a wrong command line, with a pointer to --help; returns kUsage.
int usageError(const char *format, ...) VEX_PRINTF(1, 2);

}  // namespace tool

#endif
