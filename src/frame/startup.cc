// Start-up and tear-down of the library: ties the families together, so no other library file
// includes it.
#include <curl/curl.h>
#include <locale.h>
#include <unistd.h>

#include <cstdio>
#include <exception>

#include <vex/alloc.h>
#include <vex/frame.h>
#include <vex/inifile.h>
#include <vex/log.h>
#include <vex/revision.h>

#include "frame/process_state.h"

int _VexLibInit(const char * /*progname*/, const char *compiledVersion) {
    vex::ProcessState &state = vex::process_state;
    if (state.initialized) return 1;
    state.initialized = true;
    // only the major digit tells whether the interfaces fit
    if (compiledVersion == nullptr || *compiledVersion != *VEX_INTERFACE_VERSION)
        (void)fprintf(stderr,
                      "Warning: libvex: version mismatch: this application was compiled using "
                      "version %s but is linked against version %s instead.\n",
                      compiledVersion != nullptr ? compiledVersion : "(unknown)",
                      VEX_INTERFACE_VERSION);
    state.ticks_per_ms = static_cast<double>(sysconf(_SC_CLK_TCK)) * 0.001;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): start-up has one thread
    (void)setlocale(LC_ALL, "");  // "C" stays where the environment's locale is not installed
    (void)curl_global_init(CURL_GLOBAL_ALL);  // a request that needs it reports that it is missing
    XAllocInit();
    RefreshMarkerFiles();
    return 1;
}

int VexLibDestroy() {
    (void)InifileReleaseAll();  // always 0
    (void)vexLogClose();        // always 0
    const int result = vexLogDestroy();
    vex::process_state.initialized = false;
    return result;
}

namespace zqutil {

LibAutoInit::LibAutoInit(const std::string &name) {
    (void)_VexLibInit(name.c_str(), VEX_INTERFACE_VERSION);
}

LibAutoInit::~LibAutoInit() {
    try {
        (void)VexLibDestroy();
    } catch (const std::exception &) {
        // a destructor has nobody to tell
    }
}

}  // namespace zqutil
