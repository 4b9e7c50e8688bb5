#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/utsname.h>
#include <syslog.h>
#include <unistd.h>

#include <vex/frame.h>
#include <vex/log.h>
#include <vex/revision.h>

#include "base/environment.h"
#include "base/unique_fd.h"
#include "frame/build_stamp.h"

void __vex_assert_fail(const char *expression, const char *file, unsigned line,
                       const char *function) {
    char program[65];
    (void)snprintf(program, sizeof program, "%s", vex::processName());
    struct utsname os {};
    (void)uname(&os);  // empty fields are better than no report
    char report[1024];
    (void)snprintf(
        report, sizeof report,
        "The following bug was detected: Assertion failed\n\nTested expression: %s\nFunction: %s\n"
        "File    : %s\nLine    : %u\nProgram : %s\nVersion : %s\nBuild at: %s, %s\n"
        "Compiler: %s, Version %i.%i\nOS\t: %s %s on %s\n",
        expression, function, file, line, program, VEX_PRODUCT_VERSION, vex::kBuildStamp.date,
        vex::kBuildStamp.time, vex::kBuildStamp.compiler, vex::kBuildStamp.compiler_major,
        vex::kBuildStamp.compiler_minor, os.sysname, os.release, os.machine);
    FILE *stream = vexLogFile();
    const bool shown = fputs(report, stream) >= 0;
    if (!shown || stream != stdout) {
        // appended, so that a standard error that goes to a file keeps what it holds
        const vex::UniqueFd console(open("/dev/stderr", O_WRONLY | O_APPEND | O_CLOEXEC));
        if (console && write(console.get(), report, strlen(report)) < 0) {
            // syslog is left
        }
    }
    syslog(LOG_CRIT, "%s", report);
    abort();
}
