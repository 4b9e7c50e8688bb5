#include "records.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace vault {
namespace {

constexpr size_t kFileBytes = size_t{4} << 20;
constexpr uint32_t kMostBytes = 65536;  // a record
constexpr uint64_t kBatchBytes = uint64_t{8} << 20, kBatchRecords = 65536, kFilesToMerge = 16;

// The callbacks of the sort. In its streams a record follows its size.

bool write(const Bytes &record, FILE *stream) {
    const auto size = static_cast<uint32_t>(record.size());
    return safe_fwrite(&size, sizeof size, 1, stream) == 1 &&
           safe_fwrite(record.data(), 1, size, stream) == size;
}

void *readRecord(void *, FILE *stream, uint64_t *counted) {
    uint32_t size = 0;
    if (fread(&size, sizeof size, 1, stream) != 1) {
        errno = ferror(stream) != 0 ? EIO : ENOENT;  // ENOENT tells the end
        return nullptr;
    }
    auto record = std::make_unique<Bytes>(size <= kMostBytes ? size : 0);
    if (record->empty() || safe_fread(record->data(), 1, size, stream) != size) {
        errno = EIO;
        return nullptr;
    }
    *counted = sizeof(Bytes) + size;
    return record.release();
}

int compareRecords(void *user, const void *a, uint64_t, const void *b, uint64_t) {
    return memcmp(static_cast<const Bytes *>(a)->data(), static_cast<const Bytes *>(b)->data(),
                  *static_cast<size_t *>(user));
}

uint64_t writeRecord(void *, void *object, FILE *stream, uint64_t) {
    const auto *record = static_cast<Bytes *>(object);
    return write(*record, stream) ? sizeof(uint32_t) + record->size() : UINT64_MAX;
}

void freeRecord(void *, void *object) {
    delete static_cast<Bytes *>(object);
}

}  // namespace

void put64(Bytes *record, uint64_t value) {
    record->resize(record->size() + sizeof value);
    VexUint64Serialize(&*record->end() - sizeof value, sizeof value, value, true);
}

void put32(Bytes *record, uint32_t value) {
    record->resize(record->size() + sizeof value);
    VexUint32Serialize(&*record->end() - sizeof value, sizeof value, value, true);
}

void putDigest(Bytes *record, const Digest &digest) {
    record->insert(record->end(), digest.begin(), digest.end());
}

void putText(Bytes *record, const std::string &text) {
    put32(record, static_cast<uint32_t>(text.size()));
    record->insert(record->end(), text.begin(), text.end());
}

const unsigned char *Cursor::take(size_t size) {
    check(size <= left, "a record is cut short");
    left -= size;
    return std::exchange(next, next + size);
}

uint64_t Cursor::take64() {
    uint64_t value = 0;
    VexUint64InitDeserialize(&value, take(sizeof value), sizeof value, true, nullptr);
    return value;
}

uint32_t Cursor::take32() {
    uint32_t value = 0;
    VexUint32InitDeserialize(&value, take(sizeof value), sizeof value, true, nullptr);
    return value;
}

Digest Cursor::takeDigest() {
    Digest digest;
    std::copy_n(take(digest.size()), digest.size(), digest.begin());
    return digest;
}

std::string Cursor::takeText() {
    const size_t size = take32();
    const unsigned char *const bytes = take(size);
    return {bytes, bytes + size};
}

void RecordWriter::add(const Bytes &record) {
    put32(&content_, static_cast<uint32_t>(record.size()));
    content_.insert(content_.end(), record.begin(), record.end());
    if (content_.size() >= kFileBytes) finish();
}

void RecordWriter::finish() {
    if (content_.empty()) return;
    char number[16];
    snprintf(number, sizeof number, "-%06u", files_++);
    catalogue_->sealer.write(catalogue_->path(prefix_ + number), content_);
    catalogue_->addFile(prefix_ + number, catalogue_->describe(prefix_ + number));
    content_.clear();
}

bool RecordReader::next(Bytes *record) {
    if (cursor_.left == 0) {
        if (file_ == names_.size()) return false;
        const std::string &name = names_[file_++];
        catalogue_->checkFile(name);
        content_ = catalogue_->sealer.read(catalogue_->path(name));
        cursor_ = Cursor(content_.data.get(), content_.size);
    }
    const size_t size = cursor_.take32();
    const unsigned char *const bytes = cursor_.take(size);
    record->assign(bytes, bytes + size);
    return true;
}

RecordSorter::RecordSorter(const std::string &directory, size_t key_size)
    : directory_(directory), key_size_(key_size), unsorted_(temporary()), sorted_(temporary()) {}

RecordSorter::Stream RecordSorter::temporary() const {
    std::string path = directory_ + "/records-XXXXXX";
    const int fd = mkstemp(path.data());
    check(fd >= 0, "no temporary file can be made in %s: %m", directory_.c_str());
    unlink(path.c_str());
    Stream stream{fdopen(fd, "w+"), &fclose};
    check(stream != nullptr, "no temporary file can be made in %s: %m", directory_.c_str());
    return stream;
}

void RecordSorter::add(const Bytes &record) {
    done(write(record, unsorted_.get()));
}

void RecordSorter::sort() {
    BinarySortCtx *context = BinarySortCtxConstruct(
        readRecord, compareRecords, nullptr, writeRecord, freeRecord, nullptr, &key_size_,
        kBatchRecords, kBatchBytes, directory_.c_str(), kFilesToMerge, 0, BINARY_SORT_QUIET);
    const bool written = safe_fflush(unsorted_.get()) == 0;
    rewind(unsorted_.get());
    const bool good =
        context != nullptr && written && BinarySortFp(context, unsorted_.get(), sorted_.get()) == 0;
    BinarySortCtxDestruct(&context);
    rewind(sorted_.get());
    check(good, "records cannot be sorted in %s: %m", directory_.c_str());
}

bool RecordSorter::next(Bytes *record) {
    uint64_t counted = 0;
    const std::unique_ptr<Bytes> found(
        static_cast<Bytes *>(readRecord(nullptr, sorted_.get(), &counted)));
    check(found != nullptr || errno == ENOENT, "sorted records cannot be read: %m");
    if (found != nullptr) *record = std::move(*found);
    return found != nullptr;
}

}  // namespace vault
