// "vex size": sizes as people write them, in bytes and in both printed forms.
#include <cerrno>
#include <cinttypes>
#include <cstdio>

#include "command.h"
#include "command_options.h"

namespace tool {
namespace {

/// Reads a whole text; strtosize itself would take a sign, blanks and a unit without number.
bool parse(const char *text, uint64_t *size) {
    if (*text < '0' || *text > '9') return false;
    const char *end = nullptr;
    *size = strtosize(text, &end);
    return errno == 0 && *end == '\0';
}

}  // namespace

int runSize(int argc, char **argv) {
    bool json = false;
    CommandOptions options;
    options.flag("json", &json);
    const int first = options.parse(argc, argv);
    if (first < 0) return usageError("wrong options for 'size'");
    if (first == argc) return usageError("'size' needs a size, such as 10GiB");
    int status = kSuccess;
    for (int i = first; i < argc; ++i) {
        uint64_t size = 0;
        if (!parse(argv[i], &size)) {
            status =
                fail("'%s' is no size up to 16 EiB: write digits and a unit, such as 10GiB or 10GB",
                     argv[i]);
            continue;
        }
        char exact[32];
        char rounded[32];
        std::printf(json ? "{\"bytes\":%" PRIu64 ",\"exact\":\"%s\",\"rounded\":\"%s\"}\n"
                         : "%" PRIu64 "  %s  %s\n",
                    size, sizetostr(exact, sizeof exact, size),
                    sizetofloatstr(rounded, sizeof rounded, size, 2));
    }
    return status;
}

}  // namespace tool
