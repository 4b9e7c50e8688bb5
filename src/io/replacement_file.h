#ifndef VEX_IO_REPLACEMENT_FILE_H
#define VEX_IO_REPLACEMENT_FILE_H

#include <sys/types.h>

#include <string>

#include "base/unique_fd.h"

namespace vex::io {

/// A file that is written under a temporary name beside its target and takes the target's place
/// only when it is complete and durable. Until then, and after any failure, the target is as it
/// was.
class ReplacementFile {
public:
    explicit ReplacementFile(std::string target) : target_(std::move(target)) {}
    /// Removes what was not committed.
    ~ReplacementFile();
    ReplacementFile(const ReplacementFile &) = delete;
    ReplacementFile &operator=(const ReplacementFile &) = delete;

    /// Creates the temporary file with the target's mode, and as far as allowed its owner, or
    /// @p mode less the umask where there is none; false with errno.
    bool open(mode_t mode);
    int fd() const { return fd_.get(); }
    /// Syncs, renames over the target and syncs the directory; false with errno.
    bool commit();

private:
    std::string target_, temporary_;
    UniqueFd fd_;
};

/// Puts a text in a file's place; false with errno.
bool replaceFile(const std::string &path, const std::string &text, mode_t mode);

}  // namespace vex::io

#endif
