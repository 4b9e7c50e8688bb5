// Reads a program's log settings from its ini file. It ties the log to the families above it, so no
// other library file includes it and the log itself works without it.
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <vex/file.h>
#include <vex/inifile.h>
#include <vex/log.h>

#include "log/report.h"

namespace {

constexpr const char *kCommonSection = "Logging";
constexpr int kPathRoom = 4096;

/// The section that a key is read from: the program's own when the key has a value there.
const char *sectionOf(const char *ini, const char *section, const char *key) {
    return section != nullptr && InifileValueExistsA(section, key, ini) == 0 ? section
                                                                             : kCommonSection;
}

int readFlags(const char *ini, const char *section) {
    char text[128];
    const char *source = sectionOf(ini, section, "Logging");
    (void)InifileGetValueA(source, "Logging", text, sizeof text, "long",
                           ini);  // text holds the default at least
    const int flags = vexLogParseFlagsA(text);
    if (flags != -1) return flags;
    InifileErrorA(ini, source, "Logging", text,
                  "Expected one of none, short, long, verbose or full");
    errno = EINVAL;
    return -1;
}

/// Reads and checks the directory, creating it unless nothing is logged, and composes the log's
/// path; 0 or -1.
int readPath(const char *ini, const char *section, const char *path_key, int flags, char *out,
             size_t out_size, const char *file_name, int strip) {
    char path[kPathRoom];
    const char *source = sectionOf(ini, section, path_key);
    (void)InifileGetPathA(source, path_key, path, sizeof path, "/var/log/",
                          ini);  // the default at least
    if (flags != 0 && CreateTreeLoggingOptionalA(path, 0755, 1) != 0) return -1;
    if (InifileCheckPathStripA(ini, source, path_key, path, S_IFDIR, strip) != 0) return -1;
    size_t length = strlen(path);
    if (length >= kPathRoom - 1)
        return VEX_FAIL_AS("vexLogLoadStripA", EINVAL, EINVAL, -1, "log path is too long: %s",
                           path);
    if (path[length - 1] != '/') path[length++] = '/';
    path[length] = '\0';
    const size_t name_length = file_name != nullptr ? strlen(file_name) : 0;
    if (name_length > 0 && length + name_length < kPathRoom)
        memcpy(path + length, file_name, name_length + 1);
    length = strlen(path);
    if (length >= out_size)
        return VEX_FAIL_AS("vexLogLoadStripA", EINVAL, EINVAL, -1, "no room for the log path: %s",
                           path);
    memcpy(out, path, length + 1);
    return 0;
}

}  // namespace

int vexLogLoadA(const char *ini, const char *section, const char *pathKey, char *outPath,
                size_t outPathSize, const char *fileName, int *retention) {
    return vexLogLoadStripA(ini, section, pathKey, outPath, outPathSize, fileName, retention, 1);
}

int vexLogLoadStripA(const char *ini, const char *section, const char *pathKey, char *outPath,
                     size_t outPathSize, const char *fileName, int *retention, int strip) {
    if (ini == nullptr || pathKey == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    const int flags = readFlags(ini, section);
    if (flags == -1) return -1;
    if (outPath != nullptr && outPathSize > 0 &&
        readPath(ini, section, pathKey, flags, outPath, outPathSize, fileName, strip) != 0)
        return -1;
    if (retention != nullptr) {
        // what does not parse leaves the default, and days cannot be negative
        (void)InifileGetIntegerA(sectionOf(ini, section, "Retention"), "Retention", retention, 0,
                                 ini);
        if (*retention < 0) *retention = 0;
    }
    return flags;
}
