#include "os/small_file.h"

#include <errno.h>
#include <fcntl.h>

#include <vex/io.h>

#include "base/eintr.h"
#include "base/unique_fd.h"

namespace vex::os {

bool readSmallFile(const std::string &path, std::string *text) {
    const UniqueFd fd(retryOnEintr([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC); }));
    if (!fd) return false;
    text->clear();
    char block[16384];
    ssize_t got;
    while ((got = safe_read(fd.get(), block, sizeof block)) > 0)
        text->append(block, static_cast<size_t>(got));
    return got == 0;
}

}  // namespace vex::os
