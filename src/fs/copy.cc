#include "fs/copy.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <utility>

#include <vex/digest.h>
#include <vex/file.h>

#include "base/adler32.h"
#include "base/eintr.h"
#include "base/errno_guard.h"
#include "base/unique_fd.h"
#include "fs/reader.h"
#include "log/report.h"

namespace {

constexpr char kEngine[] = "_doCopy";  // the name that its messages carry
constexpr unsigned kSideProducts = VEX_COPY_MD5 | VEX_COPY_ADLER32;
constexpr int64_t kWriteBehind = 8 << 20;

/// The process-wide copy state: options, and what the last copy computed.
struct CopyState {
    unsigned options = VEX_COPY_PLAIN;
    MD5Context md5 = {};
    uint32_t adler32 = 0;
};
CopyState state;

bool understood(unsigned options) {
    const bool both = (options & VEX_COPY_COMPRESS) != 0 && (options & VEX_COPY_DECOMPRESS) != 0;
    const unsigned known = kSideProducts | VEX_COPY_COMPRESS | VEX_COPY_DECOMPRESS;
    return options == VEX_COPY_PLAIN || (options != 0 && (options & ~known) == 0 && !both);
}

/// A descriptor that is read or written as it is or through zlib, which then owns it.
class Channel {
public:
    explicit Channel(vex::UniqueFd fd) : fd_(std::move(fd)) {}
    ~Channel() {
        vex::ErrnoGuard guard;
        if (gzip_ != nullptr)
            (void)gzclose(gzip_);  // only after a failure that is reported already
    }
    Channel(const Channel &) = delete;
    Channel &operator=(const Channel &) = delete;

    int fd() const { return fd_.get(); }

    bool throughGzip(const char *mode) {
        gzip_ = gzdopen(fd_.get(), mode);
        if (gzip_ == nullptr) return false;
        (void)fd_.release();  // zlib closes it
        return true;
    }

    /// Keeps a second descriptor, so that the file can be synced when zlib has closed its own.
    bool keepForSync() {
        twin_ = vex::UniqueFd(fcntl(fd_.get(), F_DUPFD_CLOEXEC, 0));
        return static_cast<bool>(twin_);
    }

    ssize_t read(void *block, size_t size) {
        if (gzip_ == nullptr) return safe_read(fd_.get(), block, static_cast<ssize_t>(size));
        return gzread(gzip_, block, static_cast<unsigned>(size));
    }

    bool write(const void *block, ssize_t size) {
        if (gzip_ == nullptr) return safe_write(fd_.get(), block, size) == size;
        return gzwrite(gzip_, block, static_cast<unsigned>(size)) == size;
    }

    /// Ends reading; false for a gzip file that ended too early, which only closing it tells.
    bool finishReading() {
        if (gzip_ == nullptr) return true;
        const int result = gzclose(std::exchange(gzip_, nullptr));
        if (result != Z_OK && result != Z_ERRNO) errno = EIO;
        return result == Z_OK;
    }

    bool isGzip() const { return gzip_ != nullptr; }

    bool finishGzip() {
        const bool flushed = gzflush(gzip_, Z_FULL_FLUSH) == Z_OK;
        return gzclose(std::exchange(gzip_, nullptr)) == Z_OK && flushed;
    }

    /// Syncs and closes what zlib has not closed.
    bool finish() {
        if (twin_) return safe_fsync(twin_.get()) == 0;
        return !fd_ || (safe_fsync(fd_.get()) == 0 && fd_.close() == 0);
    }

private:
    vex::UniqueFd fd_, twin_;
    gzFile gzip_ = nullptr;
};

void startSideProducts(unsigned options) {
    if ((options & VEX_COPY_MD5) != 0) MD5Initialize(&state.md5);
    if ((options & VEX_COPY_ADLER32) != 0) state.adler32 = vex::kAdler32Start;
}

void feedSideProducts(unsigned options, const unsigned char *block, ssize_t size) {
    if ((options & VEX_COPY_MD5) != 0) MD5Append(&state.md5, block, static_cast<uint32_t>(size));
    if ((options & VEX_COPY_ADLER32) != 0)
        state.adler32 = vex::adler32(state.adler32, block, static_cast<size_t>(size));
}

/// Moves all blocks; the bytes, or -1.
int64_t moveBlocks(Channel *in, Channel *out, unsigned options) {
    unsigned char block[vex::fs::kBlock];
    int64_t total = 0;
    ssize_t got;
    while ((got = in->read(block, sizeof block)) > 0) {
        feedSideProducts(options, block, got);
        if (!out->write(block, got)) return -1;
        total += got;
        // The disk works while the rest is read, so that the sync at the end finds little left to
        // do.
        if (total % kWriteBehind < got && !out->isGzip())
            (void)sync_file_range(out->fd(), 0, 0,
                                  SYNC_FILE_RANGE_WRITE);  // a wish; the sync is what counts
    }
    return got == 0 && in->finishReading() ? total : -1;
}

int64_t doCopy(vex::UniqueFd source, vex::UniqueFd destination, unsigned options, bool durable) {
    if (!understood(options))
        return VEX_FAIL_AS(kEngine, EINVAL, EINVAL, -1, "invalid input: %u", options);
    Channel in(std::move(source)), out(std::move(destination));
    if ((options & VEX_COPY_COMPRESS) != 0 &&
        ((durable && !out.keepForSync()) || !out.throughGzip("wb")))
        return VEX_FAIL_AS(kEngine, errno, errno, -1, "could not open output file");
    if ((options & VEX_COPY_DECOMPRESS) != 0 && !in.throughGzip("rb"))
        return VEX_FAIL_AS(kEngine, errno, errno, -1, "could not open input file");
    startSideProducts(options);
    errno = EIO;  // for failures inside zlib, which set none
    const int64_t total = moveBlocks(&in, &out, options);
    if (total < 0 || (out.isGzip() && !out.finishGzip()))
        return VEX_FAIL_AS(kEngine, errno, errno, -1, "encountered read/write errors");
    if (!out.finish()) return VEX_FAIL_AS(kEngine, errno, errno, -1, "encountered other errors");
    if ((options & VEX_COPY_MD5) != 0) MD5Finalize(&state.md5);
    return total;
}

}  // namespace

namespace vex::fs {

int64_t copyFile(const char *source, const char *destination, int mode, bool durable) {
    constexpr char kWho[] = "FileCopy";
    UniqueFd in = openReader(kWho, source);
    if (!in) return -1;
    UniqueFd out(retryOnEintr([&] {
        return ::open(destination, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC,
                      mode == 0 ? 0644 : mode);
    }));
    if (!out)
        return VEX_FAIL_AS(kWho, errno, errno, -1, "could not open destination file %s",
                           destination);
    const int64_t copied = doCopy(std::move(in), std::move(out), state.options, durable);
    if (copied >= 0) return copied;
    const int err = errno;
    (void)unlink(destination);  // what matters is reported below
    return VEX_FAIL_AS(kWho, err, err, -1, "copy failed");
}

}  // namespace vex::fs

int FileSetOptions(unsigned options) {
    if ((options & VEX_COPY_COMPRESS) != 0 && (options & VEX_COPY_DECOMPRESS) != 0)
        return VEX_FAIL(EINVAL, 0, "cannot have compress and uncompress set at the same time");
    state.options = options;
    return 1;
}

char *FileGetStringMD5(char *buffer, size_t size) {
    return MD5GetString_r(&state.md5, buffer, size);
}

uint32_t FileGetValueCRC(void) {
    return state.adler32;
}

int64_t FileCopy(const char *source, const char *destination, int mode) {
    if (source == nullptr || destination == nullptr)
        return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    return vex::fs::copyFile(source, destination, mode, false);
}
