// A run: sorted objects in a temporary file.
#ifndef VEX_CONTAINERS_SORT_RUN_H
#define VEX_CONTAINERS_SORT_RUN_H

#include <memory>

#include "base/unique_fd.h"
#include "base/unique_ptr.h"
#include "containers/sort_context.h"

namespace vex::sort {

/// A temporary file that is open as long as the run lives and has no name, unless the caller keeps
/// such files. Only while it is written or read does it have a stream with its buffer, so that the
/// runs that wait cost a descriptor each.
class Run {
public:
    /// An empty run, open for writing; NULL when the failure was reported.
    static std::unique_ptr<Run> create(BinarySortCtx *ctx);
    Run(const Run &) = delete;
    Run &operator=(const Run &) = delete;
    ~Run();

    FILE *stream() const { return stream_.get(); }
    const char *name() const { return name_.get(); }
    uint64_t size() const { return size_; }
    Output output() const;

    /// Ends writing; false, with errno, when not everything has reached the file.
    bool finishWriting(const Output &written);
    /// Opens the stream at the start of the file; false when the failure was reported.
    bool startReading();

private:
    explicit Run(const BinarySortCtx &ctx) : ctx_(ctx) {}
    bool makeName(uint64_t number);
    bool openFile(BinarySortCtx *ctx);
    bool openStream();

    const BinarySortCtx &ctx_;
    UniqueMalloc<char> name_;
    bool named_ = false;  ///< the file has its name in the directory
    UniqueFd fd_;
    UniqueMalloc<char> buffer_;
    UniqueFile stream_;  ///< closed before its buffer goes
    uint64_t size_ = 0;
};

}  // namespace vex::sort

#endif
