// The calls that FaultScope can make fail. Each test program compiles this file with VEX_WRAP_<call> for the calls
// it links with -Wl,--wrap=<call>.
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

using vextest::faultFor;
using vextest::FaultScope;

// VEX_WRAP(result type, name, value on failure, (parameters), (arguments))
#define VEX_WRAP(type, name, failed, parameters, arguments) \
    extern "C" type __real_##name parameters;               \
    extern "C" type __wrap_##name parameters {              \
        if (const int err = faultFor(#name); err > 0) {     \
            errno = err;                                    \
            return failed;                                  \
        }                                                   \
        return __real_##name arguments;                     \
    }

// The same for transfers, where FaultScope::kShort moves one byte only.
#define VEX_WRAP_TRANSFER(type, name, failed, parameters, count, arguments) \
    extern "C" type __real_##name parameters;                               \
    extern "C" type __wrap_##name parameters {                              \
        const int err = faultFor(#name);                                    \
        if (err > 0) {                                                      \
            errno = err;                                                    \
            return failed;                                                  \
        }                                                                   \
        if (err == FaultScope::kShort && count > 1) count = 1;              \
        return __real_##name arguments;                                     \
    }

#ifdef VEX_WRAP_open
extern "C" int __real_open(const char *path, int flags, ...);
extern "C" int __wrap_open(const char *path, int flags, ...) {
    va_list args;
    va_start(args, flags);
    const mode_t mode = va_arg(args, mode_t);
    va_end(args);
    if (const int err = faultFor("open"); err > 0) {
        errno = err;
        return -1;
    }
    return __real_open(path, flags, mode);
}
#endif
#ifdef VEX_WRAP_openat
extern "C" int __real_openat(int fd, const char *path, int flags, ...);
extern "C" int __wrap_openat(int fd, const char *path, int flags, ...) {
    va_list args;
    va_start(args, flags);
    const mode_t mode = va_arg(args, mode_t);
    va_end(args);
    if (const int err = faultFor("openat"); err > 0) {
        errno = err;
        return -1;
    }
    return __real_openat(fd, path, flags, mode);
}
#endif
#ifdef VEX_WRAP_fcntl
extern "C" int __real_fcntl(int fd, int command, ...);
extern "C" int __wrap_fcntl(int fd, int command, ...) {
    va_list args;
    va_start(args, command);
    void *argument = va_arg(args, void *);
    va_end(args);
    if (const int err = faultFor("fcntl"); err > 0) {
        errno = err;
        return -1;
    }
    return __real_fcntl(fd, command, argument);
}
#endif
#ifdef VEX_WRAP_read
VEX_WRAP_TRANSFER(ssize_t, read, -1, (int fd, void *buffer, size_t n), n, (fd, buffer, n))
#endif
#ifdef VEX_WRAP_write
VEX_WRAP_TRANSFER(ssize_t, write, -1, (int fd, const void *buffer, size_t n), n, (fd, buffer, n))
#endif
#ifdef VEX_WRAP_pread
VEX_WRAP_TRANSFER(ssize_t, pread, -1, (int fd, void *buffer, size_t n, off_t at), n, (fd, buffer, n, at))
#endif
#ifdef VEX_WRAP_pwrite
VEX_WRAP_TRANSFER(ssize_t, pwrite, -1, (int fd, const void *buffer, size_t n, off_t at), n, (fd, buffer, n, at))
#endif
#ifdef VEX_WRAP_fread
VEX_WRAP_TRANSFER(size_t, fread, 0, (void *to, size_t size, size_t n, FILE *file), n, (to, size, n, file))
#endif
#ifdef VEX_WRAP_fwrite
VEX_WRAP_TRANSFER(size_t, fwrite, 0, (const void *from, size_t size, size_t n, FILE *file), n, (from, size, n, file))
#endif
#ifdef VEX_WRAP_close
// a failing close(2) on Linux has freed the descriptor all the same
extern "C" int __real_close(int fd);
extern "C" int __wrap_close(int fd) {
    const int err = faultFor("close");
    const int result = __real_close(fd);
    if (err <= 0) return result;
    errno = err;
    return -1;
}
#endif
#ifdef VEX_WRAP_fclose
extern "C" int __real_fclose(FILE *file);
extern "C" int __wrap_fclose(FILE *file) {
    const int err = faultFor("fclose");
    const int result = __real_fclose(file);
    if (err <= 0) return result;
    errno = err;
    return EOF;
}
#endif
#ifdef VEX_WRAP_fopen
VEX_WRAP(FILE *, fopen, nullptr, (const char *path, const char *mode), (path, mode))
#endif
#ifdef VEX_WRAP_fdopen
VEX_WRAP(FILE *, fdopen, nullptr, (int fd, const char *mode), (fd, mode))
#endif
#ifdef VEX_WRAP_fflush
VEX_WRAP(int, fflush, EOF, (FILE * file), (file))
#endif
#ifdef VEX_WRAP_fsync
VEX_WRAP(int, fsync, -1, (int fd), (fd))
#endif
#ifdef VEX_WRAP_fdatasync
VEX_WRAP(int, fdatasync, -1, (int fd), (fd))
#endif
#ifdef VEX_WRAP_ftruncate
VEX_WRAP(int, ftruncate, -1, (int fd, off_t length), (fd, length))
#endif
#ifdef VEX_WRAP_lseek
VEX_WRAP(off_t, lseek, -1, (int fd, off_t offset, int whence), (fd, offset, whence))
#endif
#ifdef VEX_WRAP_rename
VEX_WRAP(int, rename, -1, (const char *from, const char *to), (from, to))
#endif
#ifdef VEX_WRAP_renameat2
VEX_WRAP(int, renameat2, -1, (int from_dir, const char *from, int to_dir, const char *to, unsigned flags),
    (from_dir, from, to_dir, to, flags))
#endif
#ifdef VEX_WRAP_select
VEX_WRAP(int, select, -1, (int n, fd_set *r, fd_set *w, fd_set *e, struct timeval *timeout), (n, r, w, e, timeout))
#endif
#ifdef VEX_WRAP_link
VEX_WRAP(int, link, -1, (const char *from, const char *to), (from, to))
#endif
#ifdef VEX_WRAP_unlink
VEX_WRAP(int, unlink, -1, (const char *path), (path))
#endif
#ifdef VEX_WRAP_mkdir
VEX_WRAP(int, mkdir, -1, (const char *path, mode_t mode), (path, mode))
#endif
#ifdef VEX_WRAP_chmod
VEX_WRAP(int, chmod, -1, (const char *path, mode_t mode), (path, mode))
#endif
#ifdef VEX_WRAP_fchmod
VEX_WRAP(int, fchmod, -1, (int fd, mode_t mode), (fd, mode))
#endif
#ifdef VEX_WRAP_stat
VEX_WRAP(int, stat, -1, (const char *path, struct stat *out), (path, out))
#endif
#ifdef VEX_WRAP_lstat
VEX_WRAP(int, lstat, -1, (const char *path, struct stat *out), (path, out))
#endif
#ifdef VEX_WRAP_fstat
VEX_WRAP(int, fstat, -1, (int fd, struct stat *out), (fd, out))
#endif
#ifdef VEX_WRAP_mmap
VEX_WRAP(void *, mmap, MAP_FAILED, (void *at, size_t n, int protection, int flags, int fd, off_t offset),
    (at, n, protection, flags, fd, offset))
#endif
#ifdef VEX_WRAP_malloc
VEX_WRAP(void *, malloc, nullptr, (size_t n), (n))
#endif
#ifdef VEX_WRAP_calloc
VEX_WRAP(void *, calloc, nullptr, (size_t n, size_t size), (n, size))
#endif
#ifdef VEX_WRAP_realloc
VEX_WRAP(void *, realloc, nullptr, (void *p, size_t n), (p, n))
#endif
#ifdef VEX_WRAP_strdup
VEX_WRAP(char *, strdup, nullptr, (const char *text), (text))
#endif
#ifdef VEX_WRAP_new
extern "C" void *__real__Znwm(size_t n);
extern "C" void *__wrap__Znwm(size_t n) {
    if (faultFor("new") > 0) throw std::bad_alloc();
    return __real__Znwm(n);
}
#endif
#ifdef VEX_WRAP_RAND_bytes
// OpenSSL's random source: 1 on success
VEX_WRAP(int, RAND_bytes, 0, (unsigned char *buffer, int n), (buffer, n))
#endif
#ifdef VEX_WRAP_EVP_default_properties_is_fips_enabled
// a fault puts the process into FIPS mode for one query
VEX_WRAP(int, EVP_default_properties_is_fips_enabled, 1, (OSSL_LIB_CTX * context), (context))
#endif
#ifdef VEX_WRAP_EVP_MD_CTX_new
VEX_WRAP(EVP_MD_CTX *, EVP_MD_CTX_new, nullptr, (), ())
#endif
#ifdef VEX_WRAP_nanosleep
// with a fault it returns at once
VEX_WRAP(int, nanosleep, -1, (const struct timespec *wanted, struct timespec *left), (wanted, left))
#endif
#ifdef VEX_WRAP_unlinkat
VEX_WRAP(int, unlinkat, -1, (int fd, const char *path, int flags), (fd, path, flags))
#endif
#ifdef VEX_WRAP_chdir
VEX_WRAP(int, chdir, -1, (const char *path), (path))
#endif
#ifdef VEX_WRAP_fchdir
VEX_WRAP(int, fchdir, -1, (int fd), (fd))
#endif
#ifdef VEX_WRAP_fstatat
VEX_WRAP(int, fstatat, -1, (int fd, const char *path, struct stat *out, int flags), (fd, path, out, flags))
#endif
#ifdef VEX_WRAP_getdents64
VEX_WRAP(ssize_t, getdents64, -1, (int fd, void *buffer, size_t n), (fd, buffer, n))
#endif
