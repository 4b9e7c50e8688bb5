#include <errno.h>
#include <stdlib.h>
#include <sys/ioctl.h>

#include <vex/os.h>

#include "base/environment.h"
#include "log/report.h"

namespace {

/// A positive number from the environment, or the standard.
int fromEnvironment(const char *name, int standard) {
    const char *const text = vex::environmentValue(name);
    const long number = text != nullptr ? strtol(text, nullptr, 10) : 0;
    return number > 0 && number < 10000 ? static_cast<int>(number) : standard;
}

}  // namespace

int VexGetTerminalSize(int fd, int *rows, int *columns) {
    if (rows == nullptr || columns == nullptr)
        return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    struct winsize size {};
    if (ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 && size.ws_col > 0) {
        *rows = size.ws_row;
        *columns = size.ws_col;
        return 0;
    }
    *rows = fromEnvironment("LINES", 24);
    *columns = fromEnvironment("COLUMNS", 80);
    return 1;
}
