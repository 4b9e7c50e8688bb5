#include "base/native_path.h"

namespace vex {

char *toNativePath(char *path) {
    char *to = path;
    for (const char *from = path; *from != '\0'; ++from) {
        const char c = *from == '\\' ? '/' : *from;
        if (c == '/' && to > path && to[-1] == '/') continue;
        *to++ = c;
    }
    if (to > path + 1 && to[-1] == '/') --to;
    *to = '\0';
    return path;
}

}  // namespace vex
