// The process's loaded ini files, their lock, and what every entry point of the store shares.
#ifndef VEX_CONFIG_INI_STORE_H
#define VEX_CONFIG_INI_STORE_H

#include <pthread.h>

#include <cerrno>

#include <vex/log.h>

#include "config/ini_file.h"
#include "log/report.h"

namespace vex::config {

/// All loaded files, newest first, under one mutex. Recursive, because a log redirector may ask the
/// store for a value while the store is logging.
struct Store {
    pthread_mutex_t mutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
    File *first = nullptr;
};
extern constinit Store store;

class StoreLock {
public:
    StoreLock() { pthread_mutex_lock(&store.mutex); }
    ~StoreLock() { pthread_mutex_unlock(&store.mutex); }
    StoreLock(const StoreLock &) = delete;
    StoreLock &operator=(const StoreLock &) = delete;
};

/// Runs the body of an entry point under the lock; a failed allocation becomes one log line and @p
/// failure.
template <typename Result, typename Body>
Result withStore(const char *who, Result failure, Body body) {
    const StoreLock lock;
    try {
        return body();
    } catch (const OutOfMemory &e) {
        log::allocationFailure(e.size(), who, e.line(), "../inifile.cc");
        return failure;
    }
}

/// The loaded file of that path, or nullptr. The lock is held.
File *findFile(std::string_view path);

/// The loaded file of that path, loaded now when it is not there; throws OutOfMemory. The lock is
/// held.
File &inifileAdd(const char *path);

/// Reads the file again when it changed on disk and holds nothing unsaved.
File &reload(const char *path);

/// Takes a file out of the store; false when it is not there.
bool release(std::string_view path);

/// Stores value 0 of a key as the savers and the getters' defaults do; -1 with EINVAL when section
/// or key could not be read back from disk. The lock is held.
int inifileSaveValue(File &file, const char *section, const char *key, const char *value);

}  // namespace vex::config

/// For the head of an entry point: fails with one log line when any of the arguments is NULL.
#define VEX_INI_REQUIRE(result, ...)                                                            \
    do {                                                                                        \
        for (const void *argument : {__VA_ARGS__})                                              \
            if (argument == nullptr) return VEX_FAIL(EINVAL, result, "invalid NULL parameter"); \
    } while (0)

#endif
