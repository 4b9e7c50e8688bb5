// The calls that FaultScope can make fail: every test program is linked with -Wl,--wrap=<call> for each, as the list in
// tests/CMakeLists.txt says.
#include <errno.h>
#include <fcntl.h>
#include <openssl/evp.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#include <new>

#include "support/faults.h"

using vextest::FaultScope;

// VEX_WRAP(result type, name, value on failure, (parameters), (arguments)), with what comes before the real call
#define VEX_WRAP_BEFORE(type, name, failed, parameters, arguments, before) \
    extern "C" type __real_##name parameters;                              \
    extern "C" type __wrap_##name parameters {                             \
        const int err = FaultScope::faultFor(#name);                       \
        if (err > 0) return errno = err, failed;                           \
        before;                                                            \
        return __real_##name arguments;                                    \
    }
#define VEX_WRAP(type, name, failed, parameters, arguments) VEX_WRAP_BEFORE(type, name, failed, parameters, arguments, )

// The same for transfers, where FaultScope::kShort moves one byte only.
#define VEX_WRAP_TRANSFER(type, name, failed, parameters, count, arguments) \
    VEX_WRAP_BEFORE(type, name, failed, parameters, arguments, if (err == FaultScope::kShort && count > 1) count = 1)

// The same for calls whose last argument is optional.
#define VEX_WRAP_OPTIONAL(name, type, parameters, arguments)                                  \
    VEX_WRAP_BEFORE(int, name, -1, parameters, arguments, va_list args; va_start(args, last); \
                    const auto optional = va_arg(args, type); va_end(args))

VEX_WRAP_OPTIONAL(open, mode_t, (const char *path, int last, ...), (path, last, optional))
VEX_WRAP_OPTIONAL(openat, mode_t, (int fd, const char *path, int last, ...), (fd, path, last, optional))
VEX_WRAP_OPTIONAL(fcntl, void *, (int fd, int last, ...), (fd, last, optional))
VEX_WRAP_TRANSFER(ssize_t, read, -1, (int fd, void *buffer, size_t n), n, (fd, buffer, n))
VEX_WRAP_TRANSFER(ssize_t, write, -1, (int fd, const void *buffer, size_t n), n, (fd, buffer, n))
VEX_WRAP_TRANSFER(ssize_t, pread, -1, (int fd, void *buffer, size_t n, off_t at), n, (fd, buffer, n, at))
VEX_WRAP_TRANSFER(ssize_t, pwrite, -1, (int fd, const void *buffer, size_t n, off_t at), n, (fd, buffer, n, at))
VEX_WRAP_TRANSFER(size_t, fread, 0, (void *to, size_t size, size_t n, FILE *file), n, (to, size, n, file))
VEX_WRAP_TRANSFER(size_t, fwrite, 0, (const void *from, size_t size, size_t n, FILE *file), n, (from, size, n, file))
// The same for calls that do their work even when they fail: a failing close(2) has freed the descriptor.
#define VEX_WRAP_CLOSE(name, failed, parameters, arguments) \
    extern "C" int __real_##name parameters;                \
    extern "C" int __wrap_##name parameters {               \
        const int err = FaultScope::faultFor(#name);        \
        const int result = __real_##name arguments;         \
        return err <= 0 ? result : (errno = err, failed);   \
    }

VEX_WRAP_CLOSE(close, -1, (int fd), (fd))
VEX_WRAP_CLOSE(fclose, EOF, (FILE * file), (file))
VEX_WRAP(FILE *, fdopen, nullptr, (int fd, const char *mode), (fd, mode))
VEX_WRAP(int, fflush, EOF, (FILE * file), (file))
VEX_WRAP(int, fsync, -1, (int fd), (fd))
VEX_WRAP(int, fdatasync, -1, (int fd), (fd))
VEX_WRAP(int, ftruncate, -1, (int fd, off_t length), (fd, length))
VEX_WRAP(off_t, lseek, -1, (int fd, off_t offset, int whence), (fd, offset, whence))
VEX_WRAP(int, rename, -1, (const char *from, const char *to), (from, to))
VEX_WRAP(int, renameat2, -1, (int from_dir, const char *from, int to_dir, const char *to, unsigned flags),
    (from_dir, from, to_dir, to, flags))
VEX_WRAP(int, select, -1, (int n, fd_set *r, fd_set *w, fd_set *e, struct timeval *timeout), (n, r, w, e, timeout))
VEX_WRAP(int, link, -1, (const char *from, const char *to), (from, to))
VEX_WRAP(int, unlink, -1, (const char *path), (path))
VEX_WRAP(int, fchmod, -1, (int fd, mode_t mode), (fd, mode))
VEX_WRAP(int, stat, -1, (const char *path, struct stat *out), (path, out))
VEX_WRAP(int, lstat, -1, (const char *path, struct stat *out), (path, out))
VEX_WRAP(int, fstat, -1, (int fd, struct stat *out), (fd, out))
VEX_WRAP(void *, mmap, MAP_FAILED, (void *at, size_t n, int protection, int flags, int fd, off_t offset),
    (at, n, protection, flags, fd, offset))
VEX_WRAP(void *, malloc, nullptr, (size_t n), (n))
VEX_WRAP(void *, calloc, nullptr, (size_t n, size_t size), (n, size))
VEX_WRAP(void *, realloc, nullptr, (void *p, size_t n), (p, n))
VEX_WRAP(char *, strdup, nullptr, (const char *text), (text))
extern "C" void *__real__Znwm(size_t n);
extern "C" void *__wrap__Znwm(size_t n) {
    if (FaultScope::faultFor("new") > 0) throw std::bad_alloc();
    return __real__Znwm(n);
}
// OpenSSL's random source: 1 on success
VEX_WRAP(int, RAND_bytes, 0, (unsigned char *buffer, int n), (buffer, n))
// a fault puts the process into FIPS mode for one query
VEX_WRAP(int, EVP_default_properties_is_fips_enabled, 1, (OSSL_LIB_CTX * context), (context))
VEX_WRAP(EVP_MD_CTX *, EVP_MD_CTX_new, nullptr, (), ())
// with a fault it returns at once
VEX_WRAP(int, nanosleep, -1, (const struct timespec *wanted, struct timespec *left), (wanted, left))
VEX_WRAP(int, unlinkat, -1, (int fd, const char *path, int flags), (fd, path, flags))
VEX_WRAP(int, chdir, -1, (const char *path), (path))
VEX_WRAP(int, fchdir, -1, (int fd), (fd))
VEX_WRAP(int, fstatat, -1, (int fd, const char *path, struct stat *out, int flags), (fd, path, out, flags))
VEX_WRAP(ssize_t, getdents64, -1, (int fd, void *buffer, size_t n), (fd, buffer, n))
