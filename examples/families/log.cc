// log FILE [MAXSIZE [DAYS]]: a program's output kept as a log: every line of standard input becomes
// a line of FILE, with its date and with the level that its first word names. FILE is rotated at
// MAXSIZE ("10MiB"); rotated files older than DAYS days are removed.
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

#include <vex/frame.h>
#include <vex/log.h>
#include <vex/log_file.h>
#include <vex/text.h>
#include <vex/values.h>

namespace {

/// Errors are wanted at once, not only in the file: a redirector sees every message of its thread.
void showErrors(int level, int, const char *message, int) {
    if ((level & (VEX_LOG_CRIT | VEX_LOG_ERR)) != 0) std::fprintf(stderr, "%s\n", message);
}

void logLine(const std::string &line) {
    const bool error = vex_strncasecmp(line.c_str(), "error", 5) == 0;
    const bool warning = vex_strncasecmp(line.c_str(), "warning", 7) == 0;
    // the text is data, never the format
    vexLog(-1, error ? VEX_LOG_ERR : warning ? VEX_LOG_WARN : VEX_LOG_INFO, "%s", line.c_str());
}

}  // namespace

int main(int argc, char **argv) {
    const zqutil::LibAutoInit library("log");
    if (argc < 2 || argc > 4) {
        std::fprintf(stderr, "usage: %s FILE [MAXSIZE [DAYS]]\n", argv[0]);
        return 2;
    }
    const char *end = "";
    const uint64_t most = argc > 2 ? strtosize(argv[2], &end) : 0;
    if (*end != '\0') {
        std::fprintf(stderr, "\"%s\" is no size such as 10MiB\n", argv[2]);
        return 2;
    }
    vexLogSetProcessMaxSize(most);
    (void)vexLogSet(argv[1], VEX_LOG_PRESET_LONG | VEX_LOG_DATE | VEX_LOG_SILENT, 0);
    vexLogSetRedirector(showErrors);

    for (std::string line; std::getline(std::cin, line);) logLine(line);

    const int days = argc > 3 ? std::atoi(argv[3]) : 0;
    const int removed = logFilePruneA(argv[1], days);
    if (removed > 0) InfoA(-1, "removed %d rotated files older than %d days", removed, days);
    return removed < 0 ? 1 : 0;
}
