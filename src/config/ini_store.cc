#include "config/ini_store.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <new>

#include <vex/inifile.h>

#include "base/eintr.h"
#include "base/unique_fd.h"

namespace vex::config {
namespace {

constexpr size_t kLargestFile = size_t{64} << 20;

struct DestroyFile {
    void operator()(File *file) const {
        file->~File();
        std::free(file);
    }
};
using OwnedFile = std::unique_ptr<File, DestroyFile>;

OwnedFile makeFile(std::string_view path) {
    void *memory = allocate(sizeof(File));
    try {
        return OwnedFile(new (memory) File(path));
    } catch (const std::bad_alloc &) {
        std::free(memory);
        throw;
    }
}

/// Reads from where the descriptor stands to the end into @p bytes; 0 or an errno. A regular file
/// is complete when its size has been read, which saves the read that only finds the end.
int readToEnd(int fd, const struct stat &status, UniqueMalloc<char> &bytes, size_t &size) {
    const bool regular = S_ISREG(status.st_mode) && status.st_size > 0;
    if (regular && static_cast<size_t>(status.st_size) > kLargestFile) return EFBIG;
    size_t room = regular ? static_cast<size_t>(status.st_size) : 4096;
    bytes.reset(static_cast<char *>(allocate(room)));
    for (size = 0;;) {
        const ssize_t n = retryOnEintr([&] { return ::read(fd, bytes.get() + size, room - size); });
        if (n < 0) return errno;
        size += static_cast<size_t>(n);
        if (n == 0 || (regular && size == room)) return 0;
        if (size < room) continue;
        if (room >= kLargestFile) return EFBIG;
        room *= 2;
        UniqueMalloc<char> larger(static_cast<char *>(allocate(room)));
        std::memcpy(larger.get(), bytes.get(), size);
        bytes = std::move(larger);
    }
}

/// Fills the file's bytes from disk; 0, or the errno that open, fstat or read left.
int readFile(File &file, size_t &size) {
    const UniqueFd fd(::open(file.path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd) return errno;
    struct stat status {};
    if (::fstat(fd.get(), &status) != 0) return errno;
    file.mtime = status.st_mtim;
    return readToEnd(fd.get(), status, file.bytes, size);
}

OwnedFile load(const char *path) {
    OwnedFile file = makeFile(path);
    size_t size = 0;
    const int err = file->path == kDefaultPath ? ENOENT : readFile(*file, size);
    if (err == 0) {
        parse(*file, {file->bytes.get(), size});
        return file;
    }
    // absence is an ordinary state; what is there but cannot be read is told once and never
    // replaced
    if (err != ENOENT) {
        file->read_error = err;
        errno = err;
        (void)VEX_FAIL_AS("inifileAdd", err, err, 0, "could not read configuration file %s: %m",
                          path);
    }
    parse(*file, "\n");
    return file;
}

File &link(OwnedFile file) {
    file->next = store.first;
    store.first = file.release();
    return *store.first;
}

File **linkTo(uint32_t checksum) {
    File **link = &store.first;
    while (*link != nullptr && (*link)->checksum != checksum) link = &(*link)->next;
    return link;
}

bool sameTime(const timespec &a, const timespec &b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

}  // namespace

constinit Store store;

File *findFile(std::string_view path) {
    return *linkTo(pathChecksum(path));
}

File &inifileAdd(const char *path) {
    if (File *found = findFile(path); found != nullptr) return *found;
    OwnedFile file = load(path);
    // a redirector that asked for this file while its syntax errors were logged has loaded it
    // already
    if (File *found = findFile(path); found != nullptr) return *found;
    return link(std::move(file));
}

File &reload(const char *path) {
    File *found = findFile(path);
    if (found == nullptr) return inifileAdd(path);
    struct stat status {};
    if (found->modified || found->path == kDefaultPath ||
        ::stat(found->path.c_str(), &status) != 0 || sameTime(status.st_mtim, found->mtime))
        return *found;
    OwnedFile fresh = load(found->path.c_str());
    (void)release(path);
    return link(std::move(fresh));
}

bool release(std::string_view path) {
    File **link = linkTo(pathChecksum(path));
    if (*link == nullptr) return false;
    const OwnedFile file(*link);
    *link = file->next;
    return true;
}

}  // namespace vex::config

using namespace vex::config;

int InifileLoadA(const char *path) {
    VEX_INI_REQUIRE(-1, path);
    return withStore(__func__, -1, [&] {
        (void)reload(path);
        return 0;
    });
}

int InifileReleaseA(const char *path) {
    VEX_INI_REQUIRE(-1, path);
    const StoreLock lock;
    if (release(path)) return 0;
    errno = ENOENT;
    return -1;
}

int InifileReleaseAll() {
    const StoreLock lock;
    while (store.first != nullptr) {
        const OwnedFile file(store.first);
        store.first = file->next;
    }
    return 0;
}
