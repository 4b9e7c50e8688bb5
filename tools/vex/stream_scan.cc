#include "stream_scan.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include <vex/cipher.h>
#include <vex/io.h>
#include <vex/magic.h>

#include "base/endian.h"

namespace tool {
namespace {

constexpr uint64_t kBlockHeader = 8, kTrailerV2 = 20, kTrailerOlder = 16;
constexpr uint32_t kTrailerMark = 0xffffffff, kMostPadding = 7;
constexpr uint64_t kLeastWindow = 4096, kOwnWindow = 32768, kLargestWindow = 2281705472;
constexpr int kKeyCheck = 8, kVector = 16;
constexpr int kForeignCipher = VEX_MAGIC_PLUGIN | VEX_MAGIC_SKIPJACK | VEX_MAGIC_RSA;
constexpr int kStream = VEX_MAGIC_SIMPLE | VEX_MAGIC_ENCRYPTED | VEX_MAGIC_DEFLATE | VEX_MAGIC_LZO;

struct Header {
    uint32_t length, padding;
};

class Scanner {
public:
    Scanner(int fd, StreamScan *scan) : fd_(fd), scan_(scan) {}

    void run();

private:
    bool readHeader(uint64_t offset, Header *header) const;
    bool plausible(uint64_t offset) const;
    bool findPrefix();
    void walk();
    void count(const Header &header);
    void readTrailer();
    void damaged(const char *what) {
        scan_->state = StreamScan::State::kDamaged;
        scan_->damage = what;
        scan_->damage_offset = std::min(at_, scan_->size);
    }

    int fd_;
    StreamScan *scan_;
    uint64_t at_ = 0;
    uint64_t capacity_ = 0;  ///< the most bytes of a payload
};

bool Scanner::readHeader(uint64_t offset, Header *header) const {
    unsigned char bytes[kBlockHeader];
    if (safe_pread(fd_, bytes, sizeof bytes, static_cast<off_t>(offset)) != sizeof bytes)
        return false;
    *header = {vex::loadBig32(bytes), vex::loadBig32(bytes + 4)};
    return true;
}

bool Scanner::plausible(uint64_t offset) const {
    Header header{};
    return readHeader(offset, &header) && header.padding <= kMostPadding &&
           (header.length <= capacity_ || header.length == kTrailerMark);
}

/// How long the prefix is depends on the cipher, which is not stored: the first block tells. False
/// when that is damaged and nothing can be said of either.
bool Scanner::findPrefix() {
    at_ = VEX_MAGIC_SIZE;
    scan_->prefix = 0;
    if (!scan_->encrypted()) return true;
    // the shorter one first: a trailer behind it looks like a block header from the longer one's
    // end
    scan_->prefix = (scan_->magic & VEX_MAGIC_KEY_CHECK) != 0 ? kKeyCheck : 0;
    at_ += static_cast<uint64_t>(scan_->prefix);
    if (plausible(at_)) return true;
    const bool vector = plausible(VEX_MAGIC_SIZE + kVector);
    scan_->prefix = vector ? kVector : StreamScan::kUnknownPrefix;
    if (vector) at_ = VEX_MAGIC_SIZE + kVector;
    return vector;
}

void Scanner::count(const Header &header) {
    ++scan_->blocks;
    scan_->payload += header.length;
    scan_->padding += header.padding;
    scan_->least_payload =
        scan_->blocks == 1 ? header.length : std::min(scan_->least_payload, header.length);
    scan_->most_payload = std::max(scan_->most_payload, header.length);
}

void Scanner::readTrailer() {
    const bool v2 = (scan_->magic & VEX_MAGIC_STREAMABLE_V2) != 0;
    const uint64_t size = v2 ? kTrailerV2 : kTrailerOlder;
    unsigned char total[8];
    const uint64_t total_at = at_ + size - sizeof total;
    if (safe_pread(fd_, total, sizeof total, static_cast<off_t>(total_at)) != sizeof total)
        return damaged("the file ends inside the trailer");
    scan_->has_total = true;
    scan_->total = vex::loadBig64(total);
    const bool plain = !scan_->compressed();
    if (plain && scan_->total != scan_->payload - std::min(scan_->padding, scan_->payload))
        return damaged("the trailer's total differs from what the blocks hold");
    at_ += size;
    if (at_ < scan_->size) return damaged("there are bytes behind the trailer");
    scan_->state = StreamScan::State::kComplete;
}

void Scanner::walk() {
    while (true) {
        Header header{};
        if (!readHeader(at_, &header)) return damaged("the file ends where a block should begin");
        if (header.length == kTrailerMark) return readTrailer();
        if (header.length > capacity_ || header.padding > kMostPadding)
            return damaged("this is no header of a block");
        if (header.length > scan_->size - at_ - kBlockHeader)
            return damaged("the file ends inside this block");
        count(header);
        at_ += kBlockHeader + header.length;
    }
}

void Scanner::run() {
    struct stat status {};
    if (fstat(fd_, &status) != 0) return;
    scan_->size = static_cast<uint64_t>(status.st_size);
    unsigned char magic[VEX_MAGIC_SIZE];
    const ssize_t count = safe_pread(fd_, magic, sizeof magic, 0);
    if (count < 0) return;
    scan_->state = count == 0 ? StreamScan::State::kEmpty : StreamScan::State::kForeign;
    if (count < VEX_MAGIC_SIZE) return;
    scan_->magic = vexMagicFromBuffer(magic, &scan_->window);
    if (scan_->magic == -2) return damaged("the magic header has no flags");
    if (scan_->magic <= 0) return;
    scan_->state = StreamScan::State::kOther;
    if ((scan_->magic & kStream) == 0 || (scan_->magic & kForeignCipher) != 0) return;
    if (scan_->window > kLargestWindow) return damaged("the magic header's window is too large");
    capacity_ = (scan_->window < kLeastWindow ? kOwnWindow : scan_->window) - kBlockHeader;
    if (!findPrefix() && at_ + kBlockHeader <= scan_->size)
        return damaged("the first block has no header");
    walk();
}

}  // namespace

bool StreamScan::encrypted() const {
    return magic > 0 && (magic & VEX_MAGIC_ENCRYPTED) != 0;
}

bool StreamScan::compressed() const {
    return magic > 0 && (magic & (VEX_MAGIC_LZO | VEX_MAGIC_DEFLATE)) != 0;
}

StreamScan scanStream(int fd) {
    StreamScan scan;
    Scanner(fd, &scan).run();
    if (scan.state == StreamScan::State::kUnreadable) scan.error = errno;
    return scan;
}

}  // namespace tool
