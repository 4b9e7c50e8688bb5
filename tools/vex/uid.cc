// "vex uid": new unique identifiers.
#include <cstdio>

#include "command.h"
#include "command_options.h"

namespace tool {

int runUid(int argc, char **argv) {
    uint64_t count = 1;
    bool json = false;
    CommandOptions options;
    opt_option &number = options.add(nullptr, OPT_TYPE_NUMBER64, &count, "1");
    number.short_name = 'n';
    options.flag("json", &json);
    const int first = options.parse(argc, argv);
    if (first < 0) return usageError("wrong options for 'uid'");
    if (first != argc) return usageError("'uid' takes no argument '%s'", argv[first]);
    for (uint64_t i = 0; i < count && std::ferror(stdout) == 0; ++i) {
        VexUID uid;
        char text[33];
        if (VexUIDGenerate(&uid, 1) == nullptr ||
            VexUIDSerialize(text, sizeof text, &uid, false) == 0)
            return fail("no identifier can be drawn: check the system's random source");
        std::printf(json ? "{\"uid\":\"%s\"}\n" : "%s\n", text);
    }
    return kSuccess;
}

}  // namespace tool
