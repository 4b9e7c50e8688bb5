// What the walker's two forms differ in: the type of its texts and how paths reach the system.
#ifndef VEX_FS_WALK_TEXT_H
#define VEX_FS_WALK_TEXT_H

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include <vex/dir.h>
#include <vex/encoding.h>
#include <vex/path.h>
#include <vex/wide.h>

#include "base/unique_ptr.h"

namespace vex::fs {

struct NarrowText {
    using Char = char;
    using Entry = DirEntry;
    using Stream = DirStream;
    using Compare = DirCompareA;
    using Filter = DirFilterA;
    using Release = DirReleaseA;

    static int access(const char *path) { return vex_access(path, F_OK); }
    static int stat(const char *path, struct stat *out) { return vex_stat(path, out); }
    static int lstat(const char *path, struct stat *out) { return ::lstat(path, out); }
    static int open(const char *path, int flags) { return ::open(path, flags | O_CLOEXEC); }
    /// Bytes of a path in the system's form.
    static size_t nativeLength(const char *path) { return std::strlen(path); }

    /// A name of the system in this form.
    class Name {
    public:
        std::string_view convert(const char *native) { return native; }
    };
    /// A path for a message.
    class Shown {
    public:
        explicit Shown(const char *path) : path_(path) {}
        const char *text() const { return path_; }

    private:
        const char *path_;
    };
};

struct WideText {
    using Char = wchar_t;
    using Entry = DirEntryW;
    using Stream = DirStreamW;
    using Compare = DirCompareW;
    using Filter = DirFilterW;
    using Release = DirReleaseW;

    static int access(const wchar_t *path) { return wcsaccess(path, F_OK); }
    static int stat(const wchar_t *path, struct stat *out) { return wcsstat(path, out); }
    static int lstat(const wchar_t *path, struct stat *out) { return wcslstat(path, out); }
    static int open(const wchar_t *path, int flags) { return wcsopen(path, flags, 0); }
    static size_t nativeLength(const wchar_t *path) {
        const ssize_t length = vex_wcs_to_utf8(path, nullptr, 0);
        return length < 0 ? PATH_MAX : static_cast<size_t>(length);
    }

    class Name {
    public:
        std::wstring_view convert(const char *native) {
            const ssize_t length = vex_utf8_to_wcs(native, room_, PATH_MAX);
            return {room_, length < 0 ? 0 : static_cast<size_t>(length)};
        }

    private:
        wchar_t room_[PATH_MAX];  // no file system has names as long as paths
    };
    class Shown {
    public:
        explicit Shown(const wchar_t *path) : text_(vex_wcs_to_utf8_malloced(path)) {}
        const char *text() const { return text_ != nullptr ? text_.get() : "?"; }

    private:
        UniqueMalloc<char> text_;
    };
};

}  // namespace vex::fs

#endif
