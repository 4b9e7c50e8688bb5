#include "snapshot.h"

#include <algorithm>
#include <cinttypes>

namespace vault {
namespace {

constexpr char kItem[] = "snapshot:";
constexpr unsigned char kChunksTag = 'C';  // where an entry's type would stand
constexpr size_t kRecordBytes = 8192;

/// Generations in ten digits sort as numbers do.
std::string itemName(const Snapshot &snapshot) {
    char generation[24];
    snprintf(generation, sizeof generation, "%010llu ", static_cast<U64>(snapshot.generation));
    return generation + snapshot.uid;
}

}  // namespace

int comparePaths(const std::string &a, const std::string &b) {
    const auto [at, bt] = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
    const auto rank = [](auto it, auto end) {
        return it == end ? -1 : *it == '/' ? 0 : static_cast<unsigned char>(*it);
    };
    return rank(at, a.end()) - rank(bt, b.end());
}

void addSnapshot(Catalogue *catalogue, const Snapshot &snapshot) {
    char numbers[128];
    snprintf(numbers, sizeof numbers, "%" PRIu64 " %" PRIu64 " %" PRIu64 " %" PRIu64 " ",
             snapshot.time, snapshot.files, snapshot.bytes, snapshot.stored);
    catalogue->set(kItem + itemName(snapshot), numbers + snapshot.sources);
}

void dropSnapshot(Catalogue *catalogue, const Snapshot &snapshot) {
    for (const std::string &name : catalogue->files(kSnapshots + snapshot.uid))
        catalogue->dropFile(name);
    catalogue->remove(kItem + itemName(snapshot));
}

std::vector<Snapshot> listSnapshots(Catalogue *catalogue) {
    std::vector<Snapshot> snapshots;
    for (const auto &[name, text] : catalogue->list(kItem)) {
        Snapshot one;
        one.generation = strtoull(name.c_str(), nullptr, 10);
        one.uid = name.substr(name.find(' ') + 1);
        int used = 0;
        check(sscanf(text.c_str(), "%" SCNu64 " %" SCNu64 " %" SCNu64 " %" SCNu64 " %n", &one.time,
                     &one.files, &one.bytes, &one.stored, &used) == 4,
              "snapshot %s has no summary", one.uid.c_str());
        one.sources = text.substr(static_cast<size_t>(used));
        snapshots.push_back(one);
    }
    return snapshots;
}

void SnapshotWriter::entry(const Entry &entry) {
    flushChunks();
    Bytes record(1, static_cast<unsigned char>(entry.type));
    putText(&record, entry.path);
    putText(&record, entry.link);
    const struct stat &is = entry.status;
    for (const uint32_t value : {is.st_mode, is.st_uid, is.st_gid}) put32(&record, value);
    for (const uint64_t value : {is.st_ino, is.st_rdev}) put64(&record, value);
    put64(&record, static_cast<uint64_t>(is.st_size));
    for (const timespec &time : {is.st_mtim, is.st_ctim}) {
        put64(&record, static_cast<uint64_t>(time.tv_sec));
        put32(&record, static_cast<uint32_t>(time.tv_nsec));
    }
    records_.add(record);
}

void SnapshotWriter::chunk(const ChunkRef &chunk) {
    if (chunks_.empty()) chunks_.push_back(kChunksTag);
    putDigest(&chunks_, chunk.digest);
    put32(&chunks_, chunk.size);
    if (chunks_.size() >= kRecordBytes) flushChunks();
}

void SnapshotWriter::flushChunks() {
    if (!chunks_.empty()) records_.add(chunks_);
    chunks_.clear();
}

/// Has the next record at hand and tells its tag, 0 at the end.
unsigned char SnapshotReader::peek() {
    if (record_.empty()) {
        if (!records_.next(&record_)) return 0;
        chunks_ = Cursor(record_);
        chunks_.take(1);
    }
    return record_[0];
}

bool SnapshotReader::next(Entry *entry) {
    while (peek() == kChunksTag) record_.clear();
    if (peek() == 0) return false;
    Cursor in(record_);
    entry->type = static_cast<char>(*in.take(1));
    entry->path = in.takeText();
    entry->link = in.takeText();
    struct stat *const is = &entry->status;
    for (uint32_t *value : {&is->st_mode, &is->st_uid, &is->st_gid}) *value = in.take32();
    for (uint64_t *value : {&is->st_ino, &is->st_rdev}) *value = in.take64();
    is->st_size = static_cast<off_t>(in.take64());
    for (timespec *time : {&is->st_mtim, &is->st_ctim}) {
        time->tv_sec = static_cast<time_t>(in.take64());
        time->tv_nsec = static_cast<long>(in.take32());
    }
    record_.clear();
    return true;
}

bool SnapshotReader::nextChunk(ChunkRef *chunk) {
    if (peek() != kChunksTag) return false;
    chunk->digest = chunks_.takeDigest();
    chunk->size = chunks_.take32();
    if (chunks_.left == 0) record_.clear();
    return true;
}

}  // namespace vault
