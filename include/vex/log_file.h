/**
 * @file log_file.h
 * @ingroup log
 * The log file manager: one open file per log path, whole lines, rotation by size.
 *
 * Each line is one write(2) on a descriptor opened with O_APPEND: lines of several threads and
 * processes do not tear, and nothing is lost when the process dies. A file that was renamed or
 * removed from outside is opened anew. While a file cannot be opened its lines are kept in memory,
 * 64 KiB at most, and written when it can. The manager lives until the process ends and reports its
 * own failures to standard error, never through the log.
 *
 * @threads all of it, from any thread; each file has a mutex of its own.
 */
#ifndef VEX_LOG_FILE_H
#define VEX_LOG_FILE_H

#include <stddef.h>

#include <vex/export.h>
#include <vex/log.h>

VEX_BEGIN_DECLS

/**
 * Appends a line, as it stands, to the log file of @p ctx.
 * @return 0 also when the context has no path; -1 with errno when the line could not be written or
 * kept.
 */
VEX_API int logFileWriteA(const char *line, vexLogCtx *ctx);
/** Sets the size in bytes from which a file is rotated before the next line; 0 for never. */
VEX_API void logFileSetMaxSize(size_t bytes);
/** Writes out what is still kept in memory. */
VEX_API void logFileFlushStreams(void);
/** In a child after fork: forgets all files and locks without writing anything. */
VEX_API void logFileReset(void);
/**
 * Removes rotated files "<path>.<YYYYmmddHHMMSS>[.n]" older than @p retention_days days; 0 or less
 * keeps all.
 * @return how many were removed, or -1 with errno: EINVAL for NULL or an empty path, else what
 * reading the directory left.
 */
VEX_API int logFilePruneA(const char *path, int retention_days);

VEX_END_DECLS

#ifdef __cplusplus
#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>

namespace vex {
namespace util {

/** A log file's directory could not be created; what() names the thread and the directory. */
class VEX_API BadPathException : public std::runtime_error {
public:
    /** @param text  what what() tells. */
    explicit BadPathException(const std::string &text);
    /** Frees the text. */
    ~BadPathException() override;
};

/** Whole lines kept in memory, 64 KiB at most; when full the oldest go and are counted. Not locked.
 */
class VEX_API LogBuffer {
public:
    /** Keeps a line; false when it alone is larger than the buffer. */
    bool append(const char *line, size_t length);
    /** Bytes kept. */
    size_t size() const;
    /** Lines dropped for want of room since the last successful drainTo. */
    size_t dropped() const;
    /** Writes the lines to @p fd, oldest first, preceded by a line that tells how many were
     * dropped; false with errno when a write failed: what was not written stays. */
    bool drainTo(int fd);

private:
    std::deque<std::string> lines_;
    size_t size_ = 0;
    size_t dropped_ = 0;
};

/** One log file. */
class VEX_API LogFile {
public:
    /** No file: lines are kept in memory until setPath. */
    LogFile();
    /** Closes; lines that are kept are lost, flush() first. */
    ~LogFile();
    LogFile(const LogFile &) = delete;
    LogFile &operator=(const LogFile &) = delete;

    /** Chooses the file, closing the one before (which gets a last line that names the new path),
     * and creates the directory. @throws BadPathException when that fails. */
    void setPath(const std::string &path);
    /** Appends; @p maxSize in bytes rotates first when reached, 0 never. False with errno when the
     * line was neither written nor kept. */
    bool write(const char *line, size_t length, size_t maxSize = 0);
    /** Writes out the lines kept in memory. */
    void flush();
    /** When the file was last written or chosen, to about 10 ms. */
    time_t lastUsed() const;
    /** True while lines wait in memory for a file that cannot be written. */
    bool keepsLines() const;
    /** After fork: gives the descriptor up without taking the lock; -1 when none is open. */
    int abandon();

private:
    bool writeLocked(const char *line, size_t length, size_t maxSize);
    bool checkIsDue();
    bool stillThere();
    bool open();
    void rotate();
    void reportOnce(const std::string &text, int err);
    void close();

    mutable std::mutex mutex_;
    std::string path_;
    std::string lastReport_;
    LogBuffer kept_;
    int fd_ = -1;
    dev_t device_ = 0;
    ino_t inode_ = 0;
    size_t position_ = 0;
    int64_t burstStart_ = 0;
    unsigned burstLines_ = 0;
    time_t lastUsed_ = 0;
};

/** All log files of the process, by path. */
class VEX_API LogManager {
public:
    /** The process's manager, which is never destroyed. */
    static LogManager &instance();
    /** The file of that path, made on first use. @throws BadPathException, std::bad_alloc. */
    std::shared_ptr<LogFile> get(std::string_view path);
    /** logFileSetMaxSize. */
    void setMaxSize(size_t bytes);
    /** What setMaxSize stored last; 0 at first. */
    size_t maxSize() const;
    /** logFileFlushStreams. */
    void flushAll();
    /** logFileReset. */
    void reset();
    /** Closes files not used for @p idle_seconds; how many. get() calls it about once a minute. */
    size_t cleanUpStaleFiles(unsigned idle_seconds);

private:
    struct State;
    LogManager();
    size_t removeIdle(unsigned idle_seconds);
    State *state_;
};

}  // namespace util
}  // namespace vex
#endif

#endif
