#include "chunks.h"

#include <algorithm>
#include <cstring>

namespace vault {
namespace {

constexpr uint32_t kFirstBits = 12, kMostBits = 29;
constexpr uint64_t kSlabBytes = uint64_t{2} << 20;
constexpr double kFalsePositives = 0.03;
constexpr size_t kContainerBytes = size_t{4} << 20;
constexpr size_t kHeadBytes = sizeof(Digest) + sizeof(uint32_t);
constexpr unsigned kGenerationShift = 24;  // a run can write 16 million containers

int compare(void *, const void *a, const void *b) {
    const int order = memcmp(a, b, sizeof(Digest));
    return (order > 0) - (order < 0);  // -2 would tell of a failure
}

uint64_t hash(void *, const void *data) {
    uint64_t first;
    memcpy(&first, data, sizeof first);
    return first;
}

crfp_digest_t forFilter(const Digest &digest) {
    crfp_digest_t key{};
    memcpy(key.bytes, digest.data(), digest.size());
    return key;
}

}  // namespace

Chunker::Chunker(size_t average)
    : average_(average), strict_(UINT64_MAX / average / 4), loose_(UINT64_MAX / average * 4) {
    // any fixed random table serves; this one needs no page of numbers
    for (size_t i = 0; i < gear_.size(); ++i) {
        const auto byte = static_cast<unsigned char>(i);
        memcpy(&gear_[i], fingerprint(&byte, 1).data(), sizeof gear_[i]);
    }
}

size_t Chunker::cut(const unsigned char *data, size_t size) const {
    const size_t least = average_ / 4;
    if (size <= least) return size;
    const size_t end = std::min(size, most()), middle = std::min(end, average_);
    uint64_t hash = 0;  // its high bits depend on the last 64 bytes
    size_t i = least - 64;
    for (; i < least; ++i) hash = (hash << 1) + gear_[data[i]];
    for (; i < middle; ++i)
        if ((hash = (hash << 1) + gear_[data[i]]) < strict_) return i + 1;
    for (; i < end; ++i)
        if ((hash = (hash << 1) + gear_[data[i]]) < loose_) return i + 1;
    return end;
}

void putChunk(Bytes *record, const ChunkRecord &chunk) {
    putDigest(record, chunk.digest);
    put64(record, chunk.container);
    put32(record, chunk.offset);
    put32(record, chunk.size);
}

ChunkRecord takeChunk(Cursor *cursor) {
    const Digest digest = cursor->takeDigest();
    return {digest, cursor->take64(), cursor->take32(), cursor->take32()};
}

ChunkIndex::ChunkIndex()
    : tree_(VexHashTreeNew(kFirstBits, sizeof(ChunkRecord), compare, hash, nullptr, kSlabBytes)),
      filter_(new BloomFilter(1UL << kFirstBits, kFalsePositives)) {}

void ChunkIndex::load(Catalogue *catalogue) {
    RecordReader files(catalogue, kIndex);
    Bytes record;
    while (files.next(&record)) {
        Cursor cursor(record);
        put(takeChunk(&cursor));
    }
}

void ChunkIndex::write(Catalogue *catalogue,
                       const std::function<bool(ChunkRecord *)> &wanted) const {
    RecordSorter chunks(catalogue->path(kTemporary), sizeof(Digest));
    forEach([&](ChunkRecord chunk) {
        if (!wanted(&chunk)) return;
        Bytes record;
        putChunk(&record, chunk);
        chunks.add(record);
    });
    chunks.sort();
    RecordWriter files(catalogue, kIndex + std::to_string(catalogue->generation()));
    for (Bytes record; chunks.next(&record);) files.add(record);
    files.finish();
}

bool ChunkIndex::find(const Digest &digest, ChunkRecord *chunk) const {
    if (!filter_->Matches(forFilter(digest))) return false;
    chunk->digest = digest;
    return VexHashTreeGet(tree_, chunk, chunk) == 1;
}

void ChunkIndex::put(const ChunkRecord &chunk) {
    if (count() >> VexHashTreeGetBits(tree_) != 0) grow();
    filter_->Insert(forFilter(chunk.digest));
    done(VexHashTreeReplaceOrInsert(tree_, &chunk, nullptr) >= 0);
}

/// Keeps about a bucket of the tree and eight bits of the filter for each chunk.
void ChunkIndex::grow() {
    const uint32_t bits = VexHashTreeGetBits(tree_) + 1;
    if (bits > kMostBits) return;
    done(VexHashTreeSetBits(tree_, bits) == 0);
    filter_ = std::make_unique<BloomFilter>(1UL << bits, kFalsePositives);
    forEach([this](const ChunkRecord &chunk) { filter_->Insert(forFilter(chunk.digest)); });
}

void ChunkIndex::forEach(const std::function<void(const ChunkRecord &)> &visit) const {
    VexHashTreeIterator *position = VexHashTreeIteratorNewBegin(tree_);
    const std::unique_ptr<VexHashTreeIterator *, decltype(&VexHashTreeIteratorDelete)> owner(
        &position, &VexHashTreeIteratorDelete);
    done(position != nullptr);
    for (ChunkRecord chunk; VexHashTreeIteratorNext(position, &chunk) == 1;) visit(chunk);
}

std::string containerName(uint64_t number) {
    char name[40];
    snprintf(name, sizeof name, "%s%016llx", kContainers, static_cast<U64>(number));
    return name;
}

ChunkWriter::ChunkWriter(Catalogue *catalogue, ChunkIndex *index)
    : catalogue_(catalogue),
      index_(index),
      first_(catalogue->generation() << kGenerationShift),
      number_(first_) {}

Digest ChunkWriter::put(const unsigned char *data, size_t size) {
    const Digest digest = fingerprint(data, size);
    ChunkRecord known;
    if (!index_->find(digest, &known)) {
        new_bytes_ += size;
        putAnew(digest, data, size);
    }
    return digest;
}

void ChunkWriter::putAnew(const Digest &digest, const unsigned char *data, size_t size) {
    if (!content_.empty() && content_.size() + kHeadBytes + size > kContainerBytes) {
        wait();
        sealing_name_ = containerName(number_++);
        sealing_ =
            std::async(std::launch::async, [this, content = std::move(content_),
                                            name = sealing_name_] { return seal(content, name); });
        content_ = Bytes();
    }
    content_.reserve(kContainerBytes);
    putDigest(&content_, digest);
    put32(&content_, static_cast<uint32_t>(size));
    index_->put(
        {digest, number_, static_cast<uint32_t>(content_.size()), static_cast<uint32_t>(size)});
    content_.insert(content_.end(), data, data + size);
}

std::string ChunkWriter::seal(const Bytes &content, const std::string &name) const {
    catalogue_->sealer.write(catalogue_->path(name), content);
    return catalogue_->describe(name);
}

void ChunkWriter::record(const std::string &name, const std::string &description) {
    stored_bytes_ += strtoull(description.c_str(), nullptr, 10);
    catalogue_->addFile(name, description);
}

void ChunkWriter::wait() {
    if (sealing_.valid()) record(sealing_name_, sealing_.get());
}

void ChunkWriter::finish() {
    wait();
    if (!content_.empty()) record(containerName(number_), seal(content_, containerName(number_)));
}

void ContainerReader::readAhead(uint64_t container) {
    ahead_ = container;
    reading_ = std::async(std::launch::async, [this, container] {
        return catalogue_->sealer.read(catalogue_->path(containerName(container)));
    });
}

void ContainerReader::load(uint64_t container) {
    done(container != failed_);
    if (container == loaded_) return;
    if (!reading_.valid() || ahead_ != container) readAhead(container);
    const auto next = expected_.upper_bound(container);
    loaded_ = 0;
    failed_ = container;
    checked_ = UINT64_MAX;
    content_ = reading_.get();
    loaded_ = std::exchange(failed_, 0);
    if (next != expected_.end()) readAhead(*next);
}

void ContainerReader::checkChunk(const ChunkRecord &chunk, const unsigned char *data) const {
    check(fingerprint(data, chunk.size) == chunk.digest,
          "%s is damaged: the chunk at %u is not what was stored",
          catalogue_->path(containerName(chunk.container)).c_str(), chunk.offset);
}

const unsigned char *ContainerReader::get(const ChunkRecord &chunk) {
    load(chunk.container);
    Cursor cursor(content_.data.get(), content_.size);
    cursor.take(chunk.offset);
    const unsigned char *const data = cursor.take(chunk.size);
    if (chunk.offset != checked_) checkChunk(chunk, data);
    checked_ = chunk.offset;
    return data;
}

void ContainerReader::forEach(
    uint64_t container,
    const std::function<void(const ChunkRecord &, const unsigned char *)> &visit) {
    load(container);
    Cursor cursor(content_.data.get(), content_.size);
    while (cursor.left != 0) {
        const Digest digest = cursor.takeDigest();
        const uint32_t size = cursor.take32();
        const auto offset = static_cast<uint32_t>(content_.size - cursor.left);
        const ChunkRecord chunk{digest, container, offset, size};
        const unsigned char *const data = cursor.take(size);
        checkChunk(chunk, data);
        visit(chunk, data);
    }
}

}  // namespace vault
