#include "containers/sort_run.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <new>

#include "base/eintr.h"
#include "log/report.h"

namespace vex::sort {
namespace {

constexpr auto kWho = "_binarySortFileOpen";
constexpr const char *kNameFormat = "%s/sort-%lu-%lu.tmp";
/// Names that are taken (by kept files, or by somebody who wants to be in the way) and passed over
/// before a sort gives up.
constexpr int kMostTakenNames = 1000;

}  // namespace

std::unique_ptr<Run> Run::create(BinarySortCtx *ctx) {
    std::unique_ptr<Run> run(new (std::nothrow) Run(*ctx));
    if (!run)
        return VEX_FAIL_AS(kWho, ENOMEM, ENOMEM, nullptr,
                           "Could not allocate memory for merge file: %m");
    if (!run->openFile(ctx) || !run->openStream()) return nullptr;
    return run;
}

Run::~Run() {
    const ErrnoGuard keep;
    if (named_ && !ctx_.has(BINARY_SORT_KEEP)) (void)unlink(name_.get());  // nobody to be told
}

bool Run::makeName(uint64_t number) {
    const auto pid = static_cast<unsigned long>(getpid());
    const int length = snprintf(nullptr, 0, kNameFormat, ctx_.tmpdir, pid, number);
    const size_t size = length < 0 ? 0 : static_cast<size_t>(length) + 1;
    if (size != 0) {
        name_.reset(static_cast<char *>(malloc(size)));
        if (!name_)
            return !ctx_.has(BINARY_SORT_QUIET) &&
                   VEX_FAIL_AS(kWho, errno, errno, false,
                               "Could not allocate %lubytes for temporary file name: %m", size);
    }
    if (size == 0 || snprintf(name_.get(), size, kNameFormat, ctx_.tmpdir, pid, number) < 0)
        return !ctx_.has(BINARY_SORT_QUIET) &&
               VEX_FAIL_AS(kWho, errno, errno, false, "Could not print temporary file name: %m");
    return true;
}

/// Creates the file under a name that nothing has, not even a link, and takes the name away at
/// once: then neither a crash nor another context leaves or meets anything.
bool Run::openFile(BinarySortCtx *ctx) {
    for (int taken = 0; taken <= kMostTakenNames; ++taken) {
        if (!makeName(ctx->file_counter++)) return false;
        fd_.reset(retryOnEintr([&] {
            return open(name_.get(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        }));
        if (fd_ || errno != EEXIST) break;
    }
    if (!fd_)
        return !ctx_.has(BINARY_SORT_QUIET) &&
               VEX_FAIL_AS(kWho, errno, errno, false, "Could not open temporary file %s: %m",
                           name_.get());
    named_ = ctx_.has(BINARY_SORT_KEEP) || unlink(name_.get()) != 0;
    return true;
}

/// The stream gets a descriptor of its own, which shares the position with the run's.
bool Run::openStream() {
    UniqueFd copy(fcntl(fd_.get(), F_DUPFD_CLOEXEC, 0));
    UniqueFile stream(copy ? fdopen(copy.get(), "w+b") : nullptr);
    if (!stream)
        return !ctx_.has(BINARY_SORT_QUIET) &&
               VEX_FAIL_AS(kWho, errno, errno, false, "Could not open temporary file %s: %m",
                           name_.get());
    (void)copy.release();  // the stream closes it
    if (const uint64_t size = ctx_.stream_buffer_size; size != 0 && size != UINT64_MAX) {
        // setvbuf allocates only the default size by itself
        buffer_.reset(static_cast<char *>(malloc(size)));
        if (!buffer_ || setvbuf(stream.get(), buffer_.get(), _IOFBF, size) != 0)
            return VEX_FAIL_AS(kWho, EIO, EIO, false, "setvbuf failed: %m");
    }
    stream_ = std::move(stream);
    return true;
}

Output Run::output() const {
    return {stream(), ctx_.has(BINARY_SORT_NUMBERS)};
}

bool Run::finishWriting(const Output &written) {
    size_ = written.offset;
    if (!flushOutput(stream()) || stream_.close() != 0) return false;
    buffer_.reset();
    return true;
}

bool Run::startReading() {
    if (lseek(fd_.get(), 0, SEEK_SET) != 0)
        return VEX_FAIL_AS("_binarySortFilesMerge", errno, errno, false,
                           "Unknown error occurred: %m");
    return openStream();
}

}  // namespace vex::sort
