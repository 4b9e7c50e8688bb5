// What a command writes: a file that appears under its name only when it is complete and durable,
// or standard output for "-". What is no regular file (a device, a pipe) is written to directly.
#ifndef VEX_TOOL_OUTPUT_FILE_H
#define VEX_TOOL_OUTPUT_FILE_H

#include <sys/types.h>
#include <unistd.h>

#include <cstddef>
#include <string>

#include "base/directory_of.h"
#include "base/unique_fd.h"

namespace tool {

class OutputFile {
public:
    OutputFile() = default;
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;
    /// Without commit() what was there stays and nothing else is left.
    ~OutputFile();

    /// This and the next two: false when the failure was reported.
    bool open(const char *path);
    bool write(const void *data, size_t size);
    /// Syncs the content, puts it under its name and syncs the directory.
    bool commit();

    int fd() const { return fd_.get(); }
    /// True when bytes have reached somebody who keeps them whatever happens later.
    bool direct() const { return target_.empty(); }

private:
    bool createUnnamed();
    bool createNamed();
    bool publish();
    bool failed(const char *what) const;

    vex::UniqueFd fd_;
    std::string name_;       ///< as the user knows it
    std::string target_;     ///< with links followed; empty for what is written directly
    std::string directory_;  ///< of target_
    std::string temporary_;  ///< the name of what is not complete; empty while it has none
    mode_t mode_ = 0;
    struct {
        uid_t user;
        gid_t group;
    } owner_ = {geteuid(), getegid()};  ///< of what is replaced
};

}  // namespace tool

#endif
