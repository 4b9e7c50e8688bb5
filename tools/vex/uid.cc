// "vex uid": new unique identifiers.
#include <cstdio>

#include "command.h"

namespace tool {

int runUid(int argc, char **argv) {
    uint64_t count = 1;
    bool json = false;
    opt_option options[2]{};
    options[0].short_name = 'n';
    options[0].type = OPT_TYPE_NUMBER64;
    options[0].default_value = "1";
    options[0].value = &count;
    options[1].long_name = "json";
    options[1].type = OPT_TYPE_FLAG_ON;
    options[1].value = &json;
    opt_option *table[] = {&options[0], &options[1], nullptr};
    const int first = opt_parse(table, argc, argv);
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
