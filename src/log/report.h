// How the library's functions report a failure: one log line, errno, and the failure value in one
// expression.
#ifndef VEX_LOG_REPORT_H
#define VEX_LOG_REPORT_H

#include <cerrno>
#include <cstddef>
#include <exception>
#include <new>

#include <vex/export.h>

namespace vex::log {

/// Logs "<who>: <text>" at error (warning) level with @p code, after setting errno to @p err so
/// that %m prints it; errno is @p err when it returns.
[[gnu::cold]] void failure(int code, int err, const char *who, const char *format, ...)
    VEX_PRINTF(4, 5);
[[gnu::cold]] void warning(int code, int err, const char *who, const char *format, ...)
    VEX_PRINTF(4, 5);

/// Logs the line, under the code, that log readers know missing memory by; errno becomes ENOMEM.
void allocationFailure(size_t bytes, const char *who, int line = __builtin_LINE(),
                       const char *file = __builtin_FILE());

}  // namespace vex::log

/// Logs "<function>: <text>" at error level with code `err`, sets errno to `err`, yields `result`.
#define VEX_FAIL(err, result, ...) VEX_FAIL_AS(__func__, (err), (err), (result), __VA_ARGS__)
#define VEX_FAIL_AS(who, code, err, result, ...) \
    (::vex::log::failure((code), (err), (who), __VA_ARGS__), (result))
/// The same at warning level.
#define VEX_FAIL_WARN(err, result, ...) \
    VEX_FAIL_WARN_AS(__func__, (err), (err), (result), __VA_ARGS__)
#define VEX_FAIL_WARN_AS(who, code, err, result, ...) \
    (::vex::log::warning((code), (err), (who), __VA_ARGS__), (result))

namespace vex {

/// Runs the body of a function that allocates through the standard library: std::bad_alloc becomes
/// ENOMEM, any other standard exception one logged failure with errno as it stands or EIO. A
/// cancelled thread unwinds through it.
template <typename Result, typename Body>
Result guard(const char *who, Result failure, Body body) {
    try {
        return body();
    } catch (const std::bad_alloc &) {
        return VEX_FAIL_AS(who, ENOMEM, ENOMEM, failure, "could not allocate memory");
    } catch (const std::exception &e) {
        const int err = errno != 0 ? errno : EIO;
        return VEX_FAIL_AS(who, err, err, failure, "%s", e.what());
    }
}

}  // namespace vex

#endif
