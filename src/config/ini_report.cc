// Reports of bad values, and the check of configured paths.
#include <sys/stat.h>

#include <vex/inifile.h>
#include <vex/log.h>

#include "config/ini_memory.h"
#include "config/ini_store.h"

namespace vex::config {
namespace {

using Logger = void (*)(int code, const char *format, ...);

const char *orNone(const char *text) {
    return text != nullptr ? text : "(none)";
}

void report(Logger log, const char *path, const char *section, const char *key, const char *value,
            const char *reason) {
    log(-1, "\nBadValue : %s\nFile     : %s\nSection  : %s\nEntry    : %s\nReason   : %s\n",
        orNone(value), orNone(path), orNone(section), orNone(key), orNone(reason));
}

void report(Logger log, const char *path, const char *section, const char *key, long value,
            const char *reason) {
    log(-1, "\nBadValue : %li\nFile     : %s\nSection  : %s\nEntry    : %s\nReason   : %s\n", value,
        orNone(path), orNone(section), orNone(key), orNone(reason));
}

/// Why a path does not do, as text in @p reason; 0 when it does, else an errno.
int checkPath(const char *value, int required_kind, char *reason, size_t size) {
    const bool directory = required_kind == S_IFDIR;
    const char *kind = directory ? "directory" : "file";
    struct stat status {};
    if (::stat(value, &status) != 0) {
        const int err = errno;
        (void)snprintf(reason, size, "not a %s (%m)", kind);
        return err;
    }
    if ((status.st_mode & S_IFMT) != static_cast<mode_t>(required_kind)) {
        (void)snprintf(reason, size, "not a %s (%s)", kind, value);
        if (directory) return ENOTDIR;
        return S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    }
    const unsigned expected = directory ? 0700 : 0600, actual = status.st_mode & 07777;
    if ((actual & expected) == expected) return 0;
    (void)snprintf(reason, size, "incorrect permissions. Expected: %#o, actual: %#o", expected,
                   actual);
    return EACCES;
}

}  // namespace
}  // namespace vex::config

using namespace vex::config;

void InifileErrorA(const char *path, const char *section, const char *key, const char *value,
                   const char *reason) {
    report(ErrorA, path, section, key, value, reason);
}

void InifileWarningA(const char *path, const char *section, const char *key, const char *value,
                     const char *reason) {
    report(WarningA, path, section, key, value, reason);
}

void InifileNoticeA(const char *path, const char *section, const char *key, const char *value,
                    const char *reason) {
    report(NoticeA, path, section, key, value, reason);
}

void InifileValueErrorA(const char *path, const char *section, const char *key, long value,
                        const char *reason) {
    report(ErrorA, path, section, key, value, reason);
}

void InifileValueWarningA(const char *path, const char *section, const char *key, long value,
                          const char *reason) {
    report(WarningA, path, section, key, value, reason);
}

void InifileValueNoticeA(const char *path, const char *section, const char *key, long value,
                         const char *reason) {
    report(NoticeA, path, section, key, value, reason);
}

int InifileCheckPathStripA(const char *path, const char *section, const char *key,
                           const char *value, int requiredKind, int strip) {
    if (requiredKind != S_IFDIR && requiredKind != S_IFREG)
        return VEX_FAIL(EINVAL, -1, "invalid kind %#o", static_cast<unsigned>(requiredKind));
    if (value == nullptr || *value == '\0') {
        InifileErrorA(path, section, key, value, "Expected a non-empty value.");
        errno = EINVAL;
        return -1;
    }
    return vex::guard(__func__, -1, [&] {
        std::string copy(value);
        while (strip != 0 && copy.size() > 1 && copy.back() == '/') copy.pop_back();
        char reason[PATH_MAX + 64];
        const int err = checkPath(copy.c_str(), requiredKind, reason, sizeof reason);
        if (err == 0) return 0;
        InifileErrorA(path, section, key, value, reason);
        errno = err;
        return -1;
    });
}

int InifileCheckPathA(const char *path, const char *section, const char *key, const char *value,
                      int requiredKind) {
    return InifileCheckPathStripA(path, section, key, value, requiredKind, 1);
}
