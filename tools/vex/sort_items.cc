#include "sort_items.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

namespace tool {
namespace {

constexpr uint64_t kSlab = 1U << 20U;
constexpr uint64_t kSlabHeader = 12;
// the first word of a block is the preallocator's, which tells free blocks by it
constexpr uint64_t kBlockHead = 8;
constexpr uint64_t kLeastBlock = 24;
constexpr uint64_t kMallocHead = 16;  // on average, with rounding
constexpr uint64_t kEntry = 32;       // what the sort itself keeps for each item
constexpr uint64_t kProgressMask = 0xfff;

uint64_t blockSize(uint64_t record) {
    return std::max(kLeastBlock, (record + kBlockHead + 7) / 8 * 8);
}

}  // namespace

struct SortItems::Line {
    size_t length;  ///< with its newline
    const char *text() const { return reinterpret_cast<const char *>(this + 1); }
    char *text() { return reinterpret_cast<char *>(this + 1); }
};

SortItems::SortItems(const SortKey &key, FILE *source, FILE *destination, uint64_t size)
    : key_(key), source_(source), destination_(destination), size_(size) {
    progress_.emplace("sort, reading", size);
    if (key.record == 0) return;
    const uint64_t block = blockSize(key.record);
    blocks_.reset(preallocator_construct(std::max(kSlab, block + kSlabHeader + 4), block,
                                         ~UINT64_C(0), 0, nullptr, nullptr));
    if (!blocks_) throw std::bad_alloc();
}

SortCallbacks SortItems::callbacks() const {
    if (key_.record != 0)
        return {readRecord, compareRecords, writeRecord, freeRecord,
                blockSize(key_.record) + kEntry};
    return {readLine, compareLines, writeLine, freeLine, sizeof(Line) + 1 + kMallocHead + kEntry};
}

void SortItems::noteRead(const FILE *stream, uint64_t bytes) {
    if (stream != source_) return;
    read_ += bytes;
    if ((++calls_ & kProgressMask) == 0) progress_->update(read_);
}

void SortItems::noteWritten(const FILE *stream, uint64_t offset) {
    if (stream != destination_) return;
    if (!merging_) progress_.emplace("sort, merging", size_);
    merging_ = true;
    if ((++calls_ & kProgressMask) == 0) progress_->update(offset);
}

void *SortItems::readLine(void *user, FILE *stream, uint64_t *size) {
    SortItems *const self = of(user);
    char *buffer = self->line_.release();
    const ssize_t got = getline(&buffer, &self->line_room_, stream);
    self->line_.reset(buffer);
    if (got <= 0) {
        if (feof(stream) != 0 && ferror(stream) == 0) errno = ENOENT;
        return nullptr;
    }
    const auto length = static_cast<size_t>(got);
    self->noteRead(stream, length);
    const bool ended = buffer[length - 1] == '\n';
    auto *const line = static_cast<Line *>(malloc(sizeof(Line) + length + (ended ? 0 : 1)));
    if (line == nullptr) return nullptr;
    line->length = length + (ended ? 0 : 1);
    memcpy(line->text(), buffer, length);
    line->text()[line->length - 1] = '\n';  // the last line may lack it
    *size = sizeof(Line) + line->length + kMallocHead + kEntry;
    return line;
}

int SortItems::compareLines(void * /*user*/, const void *a, uint64_t, const void *b, uint64_t) {
    const auto *const x = static_cast<const Line *>(a);
    const auto *const y = static_cast<const Line *>(b);
    // newlines are no part of what is compared: a line goes before those that it begins
    const size_t shorter = std::min(x->length, y->length) - 1;
    const int order = memcmp(x->text(), y->text(), shorter);
    if (order != 0) return order;
    return x->length < y->length ? -1 : x->length > y->length ? 1 : 0;
}

uint64_t SortItems::writeLine(void *user, void *line, FILE *stream, uint64_t offset) {
    const auto *const item = static_cast<const Line *>(line);
    of(user)->noteWritten(stream, offset);
    return fwrite_unlocked(item->text(), item->length, 1, stream) == 1 ? item->length : UINT64_MAX;
}

void SortItems::freeLine(void * /*user*/, void *line) {
    free(line);
}

void *SortItems::readRecord(void *user, FILE *stream, uint64_t *size) {
    SortItems *const self = of(user);
    auto *const block = static_cast<char *>(preallocator_alloc(self->blocks_.get()));
    if (block == nullptr) return nullptr;
    const uint64_t record = self->key_.record;
    const size_t got = fread_unlocked(block + kBlockHead, 1, record, stream);
    if (got == record) {
        self->noteRead(stream, record);
        *size = blockSize(record) + kEntry;
        return block + kBlockHead;
    }
    const int err = errno;
    preallocator_free(self->blocks_.get(), block);
    errno = err;
    if (feof(stream) == 0 || ferror(stream) != 0) return nullptr;
    self->torn_ = got != 0;
    errno = self->torn_ ? EINVAL : ENOENT;
    return nullptr;
}

int SortItems::compareRecords(void *user, const void *a, uint64_t, const void *b, uint64_t) {
    const SortKey &key = of(user)->key_;
    return memcmp(static_cast<const char *>(a) + key.offset,
                  static_cast<const char *>(b) + key.offset, key.length);
}

uint64_t SortItems::writeRecord(void *user, void *record, FILE *stream, uint64_t offset) {
    SortItems *const self = of(user);
    self->noteWritten(stream, offset);
    return fwrite_unlocked(record, self->key_.record, 1, stream) == 1 ? self->key_.record
                                                                      : UINT64_MAX;
}

void SortItems::freeRecord(void *user, void *record) {
    preallocator_free(of(user)->blocks_.get(), static_cast<char *>(record) - kBlockHead);
}

}  // namespace tool
