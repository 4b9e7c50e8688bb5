#include <fcntl.h>
#include <openssl/crypto.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/directory_of.h"
#include "base/unique_fd.h"
#include "command.h"
#include "output_file.h"

namespace tool {
namespace {

/// Writes the new file and makes it durable; errno on failure.
bool store(vex::UniqueFd *fd, const char *path, const char *text, ssize_t size) {
    return safe_write(fd->get(), text, size) == size && safe_fsync(fd->get()) == 0 &&
           fd->close() == 0 && dirfsync(std::string(vex::directoryOf(path)).c_str(), 0) == 0;
}

}  // namespace

int runKeygen(int argc, char **argv) {
    const int first = argc > 1 && strcmp(argv[1], "--") == 0 ? 2 : 1;
    if (argc - first != 1) return usageError("keygen: name one file for the key");
    const char *const path = argv[first];
    if (path[0] == '-' && first == 1)
        return usageError(
            "keygen: unknown option %s; a file's name that begins with '-' goes behind --", path);
    vex::UniqueFd fd(open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!fd && errno == EEXIST)
        return fail(
            "%s exists and was left alone: what was sealed with its key needs it; "
            "choose another name",
            path);
    if (!fd) return fail("%s cannot be created: %m; check the directory", path);

    unsigned char key[VEX_KEY_SIZE];
    char text[2 * VEX_KEY_SIZE + 2];
    const bool drawn = RandomGetBytes(key, sizeof key) == 0;
    HexEncode(key, sizeof key, text, sizeof text);
    text[sizeof text - 2] = '\n';
    const bool stored = drawn && store(&fd, path, text, 2 * VEX_KEY_SIZE + 1);
    const int error = errno;
    OPENSSL_cleanse(key, sizeof key);
    OPENSSL_cleanse(text, sizeof text);
    if (stored) return kSuccess;
    unlink(path);
    errno = error;
    return fail("%s: the key could not be stored: %m; no file was left behind, try again", path);
}

}  // namespace tool
