// io FILE [TEXT]: a journal. With TEXT it appends one record, and succeeds only once the disk has
// it; without it prints the records. A record is the length of its text (32 bits, big-endian) and
// the text; one that a power cut has torn is dropped by the next append.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include <vex/frame.h>
#include <vex/io.h>
#include <vex/log.h>
#include <vex/path.h>
#include <vex/serialize.h>

namespace {

constexpr uint32_t kMostText = 1 << 20;

/// Reads the record at @p offset and moves behind it; false at the end and at a torn record.
bool readRecord(int fd, off_t *offset, std::string *text) {
    unsigned char head[4];
    uint32_t length = 0;
    if (safe_pread(fd, head, sizeof head, *offset) != sizeof head ||
        VexUint32InitDeserialize(&length, head, sizeof head, true, nullptr) == nullptr ||
        length > kMostText)
        return false;
    text->resize(length);
    const ssize_t got = safe_pread(fd, text->data(), length, *offset + 4);
    if (got != static_cast<ssize_t>(length)) return false;
    *offset += 4 + static_cast<off_t>(length);
    return true;
}

bool append(int fd, off_t end, const char *text) {
    std::string record(4, '\0');
    const size_t length = strlen(text);
    if (length > kMostText) return false;
    if (VexUint32Serialize(record.data(), 4, static_cast<uint32_t>(length), true) != 4)
        return false;
    record += text;
    // what stands behind the last whole record goes first, or it could be taken for one later
    return safe_ftruncate(fd, end) == 0 &&
           safe_pwrite(fd, record.data(), static_cast<ssize_t>(record.size()), end) ==
               static_cast<ssize_t>(record.size()) &&
           safe_fdatasync(fd) == 0;
}

}  // namespace

int main(int argc, char **argv) {
    const zqutil::LibAutoInit library("io");
    char folder[4096];
    if (argc < 2 || argc > 3 || vex_path_dirname(argv[1], folder, sizeof folder) < 0) {
        std::fprintf(stderr, "usage: %s FILE [TEXT]\n", argv[0]);
        return 2;
    }
    const bool add = argc == 3;
    const int fd = open(argv[1], (add ? O_RDWR | O_CREAT : O_RDONLY) | O_CLOEXEC, 0666);
    if (fd < 0) {
        ErrorA(-1, "cannot open %s: %m", argv[1]);
        return 1;
    }
    off_t end = 0;
    for (std::string text; readRecord(fd, &end, &text);)
        if (!add) std::printf("%s\n", text.c_str());
    // a new file is there to stay only when its directory is on the disk as well
    const bool good = !add || (append(fd, end, argv[2]) && dirfsync(folder, 0) == 0);
    return close(fd) == 0 && good ? 0 : 1;
}
