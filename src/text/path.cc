#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <string_view>

#include <vex/path.h>

#include "base/eintr.h"
#include "base/native_path.h"
#include "base/unique_ptr.h"
#include "log/report.h"

namespace {

std::string native(const char *path) {
    std::string text(path);
    text.resize(strlen(vex::toNativePath(text.data())));
    return text;
}

/// Copies the result out; its length, or -1 with ENOBUFS and nothing copied.
ssize_t deliver(std::string_view text, char *out, size_t size) {
    const bool fits = text.size() < size;
    if (fits) memcpy(out, text.data(), text.size());
    if (size > 0) out[fits ? text.size() : 0] = '\0';
    if (fits) return static_cast<ssize_t>(text.size());
    errno = ENOBUFS;
    return -1;
}

std::string_view withoutTrailing(std::string_view path) {
    while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
    return path;
}

std::string_view dirnameOf(std::string_view path) {
    path = withoutTrailing(path);
    const size_t slash = path.rfind('/');
    if (slash == std::string_view::npos || path.empty()) return ".";
    return withoutTrailing(path.substr(0, slash + 1));
}

std::string_view nameOf(std::string_view path) {
    path = withoutTrailing(path);
    const size_t slash = path.rfind('/');
    return slash == std::string_view::npos || path == "/" ? path : path.substr(slash + 1);
}

/// realpath of what exists, with the names behind it appended. ".." behind a missing directory and
/// a link that leads nowhere have no meaning, so that they stay ENOENT.
bool resolve(const std::string &path, std::string *result) {
    const vex::UniqueMalloc<char> real(realpath(path.c_str(), nullptr));
    if (real) return *result = real.get(), true;
    const std::string_view name = nameOf(path);
    struct stat link {};
    if (errno != ENOENT || path.empty() || name == ".." || name == "/") return false;
    if (lstat(path.c_str(), &link) == 0) return errno = ENOENT, false;
    if (!resolve(std::string(dirnameOf(path)), result)) return false;
    if (name == ".") return true;
    if (result->back() != '/') *result += '/';
    *result += name;
    if (result->size() < PATH_MAX) return true;
    errno = ENAMETOOLONG;
    return false;
}

}  // namespace

int vex_access(const char *path, int mode) {
    if (path == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    return vex::retryOnEintr([&] { return ::access(path, mode); });
}

int vex_stat(const char *path, struct stat *status) {
    if (path == nullptr || status == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    return vex::retryOnEintr([&] { return ::stat(path, status); });
}

char *vex_path_native(char *path) {
    if (path == nullptr) return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    return vex::toNativePath(path);
}

int vex_path_compare(const char *a, const char *b) {
    if (a == nullptr || b == nullptr) return VEX_FAIL(EINVAL, INT_MIN, "invalid NULL parameter");
    return vex::guard(__func__, INT_MIN,
                      [&] { return strcmp(native(a).c_str(), native(b).c_str()); });
}

int vex_path_is_below(const char *path, const char *root) {
    if (path == nullptr || root == nullptr) return VEX_FAIL(EINVAL, 0, "invalid NULL parameter");
    return vex::guard(__func__, 0, [&] {
        const std::string inner = native(path), outer = native(root);
        const bool absolute = !inner.empty() && inner[0] == '/';
        if (outer == "/") return absolute ? 1 : 0;
        if (outer.empty() || outer == ".") return absolute ? 0 : 1;
        if (inner.compare(0, outer.size(), outer) != 0) return 0;
        return inner.size() == outer.size() || inner[outer.size()] == '/' ? 1 : 0;
    });
}

ssize_t vex_path_resolve(const char *path, char *out, size_t size) {
    if (path == nullptr || out == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    return vex::guard(__func__, ssize_t{-1}, [&] {
        std::string result;
        return resolve(path, &result) ? deliver(result, out, size) : -1;
    });
}

ssize_t vex_path_join(char *out, size_t size, const char *dir, const char *name) {
    if (out == nullptr || dir == nullptr || name == nullptr)
        return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    return vex::guard(__func__, ssize_t{-1}, [&] {
        std::string path(dir);
        if (!path.empty() && path.back() != '/') path += '/';
        while (!path.empty() && *name == '/') ++name;
        return deliver(path += name, out, size);
    });
}

const char *vex_path_basename(const char *path) {
    if (path == nullptr) return VEX_FAIL(EINVAL, nullptr, "invalid NULL parameter");
    return nameOf(path).data();
}

ssize_t vex_path_dirname(const char *path, char *out, size_t size) {
    if (path == nullptr || out == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    return deliver(dirnameOf(path), out, size);
}
