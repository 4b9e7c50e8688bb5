// What a command reads: a file, or standard input for "-".
#ifndef VEX_TOOL_INPUT_FILE_H
#define VEX_TOOL_INPUT_FILE_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "base/unique_fd.h"

namespace tool {

class InputFile {
public:
    /// False when the failure was reported.
    bool open(const char *path);
    /// Fills the buffer unless the input ends before; -1 when the failure was reported.
    ssize_t read(void *buffer, size_t size);

    const char *name() const { return name_; }
    int fd() const { return fd_.get(); }
    /// Bytes of a regular file, 0 for anything else.
    uint64_t size() const { return size_; }
    bool regular() const { return regular_; }

private:
    vex::UniqueFd fd_;
    const char *name_ = "";
    uint64_t size_ = 0;
    bool regular_ = false;
};

}  // namespace tool

#endif
