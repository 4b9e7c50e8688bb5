// The process's log files by path, and the plain functions over them.
#include <errno.h>
#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <string_view>

#include <vex/log_file.h>

#include "base/ascii.h"
#include "log/context.h"

namespace vex::util {

struct LogManager::State {
    std::mutex mutex;
    std::map<std::string, std::shared_ptr<LogFile>, std::less<>> files;
    time_t last_clean_up = time(nullptr);
    std::atomic<size_t> max_size = 0;
};

namespace {

constexpr unsigned kIdleSeconds = 600;
constexpr time_t kSecondsBetweenCleanUps = 60;

// The map must be whole in a child that another thread's fork interrupts, so that reset can close
// its descriptors.
std::mutex *mutex_across_fork = nullptr;

}  // namespace

LogManager::LogManager() : state_(new State) {
    mutex_across_fork = &state_->mutex;
    pthread_atfork([] { mutex_across_fork->lock(); }, [] { mutex_across_fork->unlock(); },
                   [] { mutex_across_fork->unlock(); });
}

LogManager &LogManager::instance() {
    // never destroyed: lines from exit handlers and static destructors must still arrive
    static LogManager *const manager = new LogManager;
    return *manager;
}

std::shared_ptr<LogFile> LogManager::get(std::string_view path) {
    const std::lock_guard<std::mutex> lock(state_->mutex);
    std::shared_ptr<LogFile> file;
    if (const auto found = state_->files.find(path); found != state_->files.end())
        file = found->second;  // held: it may be one that the process could not open again
    // also where the path is known: a program that goes on with one log must not keep the others
    // open
    const time_t now = time(nullptr);
    if (now - state_->last_clean_up >= kSecondsBetweenCleanUps) {
        state_->last_clean_up = now;
        removeIdle(kIdleSeconds);
    }
    if (file != nullptr) return file;
    file = std::make_shared<LogFile>();
    state_->files.emplace(path, file);
    file->setPath(std::string(
        path));  // when it throws the file stays, to keep lines until its directory can be made
    return file;
}

void LogManager::setMaxSize(size_t bytes) {
    state_->max_size = bytes;
}

size_t LogManager::maxSize() const {
    return state_->max_size;
}

void LogManager::flushAll() {
    const std::lock_guard<std::mutex> lock(state_->mutex);
    for (const auto &[path, file] : state_->files) file->flush();
}

void LogManager::reset() {
    // the files are leaked on purpose: their mutexes may be held by threads that the fork left
    // behind
    State *old = state_;
    state_ = new State;
    state_->max_size = old->max_size.load();
    mutex_across_fork = &state_->mutex;
    for (const auto &[path, file] : old->files) {
        const int fd = file->abandon();
        if (fd >= 0) (void)close(fd);  // nothing of this process was written through it
    }
}

size_t LogManager::cleanUpStaleFiles(unsigned idle_seconds) {
    const std::lock_guard<std::mutex> lock(state_->mutex);
    return removeIdle(idle_seconds);
}

size_t LogManager::removeIdle(unsigned idle_seconds) {
    const time_t oldest = time(nullptr) - static_cast<time_t>(idle_seconds);
    return std::erase_if(state_->files, [&](const auto &entry) {
        const auto &file = entry.second;
        if (file.use_count() > 1 || file->lastUsed() > oldest) return false;
        file->flush();
        return !file->keepsLines();
    });
}

}  // namespace vex::util

namespace {

using vex::util::BadPathException;
using vex::util::LogManager;

int writeLine(const char *line, const char *path) {
    LogManager &manager = LogManager::instance();
    std::shared_ptr<vex::util::LogFile> file;
    try {
        file = manager.get(path);
    } catch (const BadPathException &e) {
        (void)fprintf(stderr, "%s\n", e.what());
        file = manager.get(path);
    }
    return file->write(line, strlen(line), manager.maxSize()) ? 0 : -1;
}

/// True for ".<14 digits>", and for that with ".<digits>" behind it.
bool isRotationSuffix(std::string_view suffix) {
    constexpr size_t kStamp = 15;
    if (suffix.size() < kStamp || suffix[0] != '.') return false;
    for (size_t i = 1; i < suffix.size(); ++i) {
        const bool second_dot = i == kStamp && suffix[i] == '.' && i + 1 < suffix.size();
        if (!vex::ascii::isDigit(suffix[i]) && !second_dot) return false;
    }
    return suffix.size() == kStamp || suffix[kStamp] == '.';
}

/// Runs the body of a plain function, out of which no exception may come; without memory there is
/// nothing left to tell.
template <typename Body>
void quietly(Body body) {
    try {
        body();
    } catch (const std::exception &) {
        errno = ENOMEM;
    }
}

// what a clock that counts nanoseconds can be set back by with room to spare
constexpr int kMostDays = 36500;

int prune(const std::string &path, int days) {
    namespace fs = std::filesystem;
    const fs::path log(path);
    const std::string name = log.filename().string();
    const auto oldest =
        fs::file_time_type::clock::now() - std::chrono::hours(24) * std::min(days, kMostDays);
    int removed = 0;
    std::error_code error;
    fs::directory_iterator entries(log.has_parent_path() ? log.parent_path() : fs::path("."),
                                   error);
    for (; !error && entries != fs::directory_iterator(); entries.increment(error)) {
        const std::string entry = entries->path().filename().string();
        if (entry.compare(0, name.size(), name) != 0 ||
            !isRotationSuffix(std::string_view(entry).substr(name.size())))
            continue;
        std::error_code ignored;  // a file that vanished or stays is tried the next time
        const auto written = entries->last_write_time(ignored);
        if (!ignored && written < oldest && fs::remove(entries->path(), ignored)) ++removed;
    }
    if (!error) return removed;
    errno = error.value();
    return -1;
}

}  // namespace

extern "C" {

int logFileWriteA(const char *line, vexLogCtx *ctx) {
    if (line == nullptr || ctx == nullptr) {
        errno = EINVAL;
        return -1;
    }
    if (ctx->path[0] == '\0') return 0;
    try {
        return writeLine(line, ctx->path);
    } catch (const std::exception &e) {
        (void)fprintf(stderr, "log file %s: %s\n", ctx->path, e.what());
        errno = ENOMEM;
        return -1;
    }
}

void logFileSetMaxSize(size_t bytes) {
    quietly([=] { LogManager::instance().setMaxSize(bytes); });
}

void logFileFlushStreams(void) {
    quietly([] { LogManager::instance().flushAll(); });
}

void logFileReset(void) {
    quietly([] { LogManager::instance().reset(); });
}

int logFilePruneA(const char *path, int retention_days) {
    if (path == nullptr || *path == '\0') {
        errno = EINVAL;
        return -1;
    }
    if (retention_days <= 0) return 0;
    try {
        return prune(path, retention_days);
    } catch (const std::exception &) {
        errno = ENOMEM;
        return -1;
    }
}

}  // extern "C"
