// Snapshots: what a tree held at one moment. The registry has a line about each; its entries are a
// list named by its UID.
#ifndef VAULT_SNAPSHOT_H
#define VAULT_SNAPSHOT_H

#include "lists.h"

namespace vault {

struct Snapshot {
    std::string uid, sources;
    uint64_t generation = 0, time = 0, files = 0, bytes = 0, stored = 0;

    /// In the registry: ten digits sort as numbers do.
    std::string item() const {
        char text[64];
        snprintf(text, sizeof text, "snapshot:%010llu %s", static_cast<U64>(generation),
                 uid.c_str());
        return text;
    }
    void add(Catalogue *catalogue) const {
        std::string text;
        for (const uint64_t number : {time, files, bytes, stored})
            text += std::to_string(number) + " ";
        catalogue->set(item(), text + sources);
    }
    void drop(Catalogue *catalogue) const {
        for (const std::string &name : catalogue->files(kSnapshots + uid))
            catalogue->dropFile(name);
        catalogue->remove(item());
    }
};

/// All snapshots, the oldest first.
inline std::vector<Snapshot> listSnapshots(Catalogue *catalogue) {
    std::vector<Snapshot> snapshots;
    for (const auto &[name, text] : catalogue->list("snapshot:")) {
        Snapshot one;
        one.generation = strtoull(name.c_str(), nullptr, 10);
        one.uid = name.substr(name.find(' ') + 1);
        size_t at = 0;
        for (uint64_t *number : {&one.time, &one.files, &one.bytes, &one.stored}) {
            *number = strtoull(text.c_str() + at, nullptr, 10);
            at = text.find(' ', at) + 1;
        }
        one.sources = text.substr(at);
        snapshots.push_back(one);
    }
    return snapshots;
}

/// A file, directory, link, pipe or device. Entries come directory by directory, names in byte
/// order.
struct Entry {
    bool hard_link = false;
    std::string path, link;  ///< link: where a link leads; the first path of a hard link
    struct stat status {};
    bool is(mode_t type) const { return (status.st_mode & S_IFMT) == type; }
};

/// Before or after, as entries come: '/' counts as the lowest character.
inline int comparePaths(const std::string &a, const std::string &b) {
    const auto [at, bt] = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
    const auto rank = [](auto it, auto end) {
        return it == end ? -1 : *it == '/' ? 0 : static_cast<unsigned char>(*it);
    };
    return rank(at, a.end()) - rank(bt, b.end());
}

/// A piece of a file's content.
struct ChunkRef {
    Digest digest;
    uint32_t size;
};

// how an item of the list begins
constexpr unsigned char kEntry = 'E', kHardLink = 'H', kChunk = 'C';

class SnapshotWriter {
public:
    SnapshotWriter(Catalogue *catalogue, const std::string &uid)
        : list_(catalogue, kSnapshots + uid) {}

    /// Adds an entry; the chunks of its content follow.
    void entry(const Entry &entry) {
        Bytes *const out = &list_.content;
        out->push_back(entry.hard_link ? kHardLink : kEntry);
        putText(out, entry.path);
        putText(out, entry.link);
        const struct stat &is = entry.status;
        for (const uint32_t value : {is.st_mode, is.st_uid, is.st_gid}) put32(out, value);
        for (const uint64_t value : {is.st_ino, is.st_rdev, static_cast<uint64_t>(is.st_size)})
            put64(out, value);
        for (const timespec &time : {is.st_mtim, is.st_ctim}) {
            put64(out, static_cast<uint64_t>(time.tv_sec));
            put32(out, static_cast<uint32_t>(time.tv_nsec));
        }
        list_.endItem();
    }
    void chunk(const ChunkRef &chunk) {
        list_.content.push_back(kChunk);
        putDigest(&list_.content, chunk.digest);
        put32(&list_.content, chunk.size);
        list_.endItem();
    }
    void finish() { list_.finish(); }

private:
    ListWriter list_;
};

class SnapshotReader {
public:
    SnapshotReader(Catalogue *catalogue, const std::string &uid)
        : list_(catalogue, kSnapshots + uid) {}

    /// Reads the next entry; false at the end. Chunks not asked for are skipped.
    bool next(Entry *entry) {
        for (ChunkRef chunk; nextChunk(&chunk);) continue;
        Cursor *const in = list_.next();
        if (in == nullptr) return false;
        entry->hard_link = *in->take(1) == kHardLink;
        entry->path = in->takeText();
        entry->link = in->takeText();
        struct stat *const is = &entry->status;
        for (uint32_t *value : {&is->st_mode, &is->st_uid, &is->st_gid}) *value = in->take32();
        for (uint64_t *value : {&is->st_ino, &is->st_rdev}) *value = in->take64();
        is->st_size = static_cast<off_t>(in->take64());
        for (timespec *time : {&is->st_mtim, &is->st_ctim}) {
            time->tv_sec = static_cast<time_t>(in->take64());
            time->tv_nsec = static_cast<long>(in->take32());
        }
        return true;
    }

    /// Reads the next chunk of the entry's content; false at its end.
    bool nextChunk(ChunkRef *chunk) {
        Cursor *const in = list_.next();
        if (in == nullptr || *in->next != kChunk) return false;
        in->take(1);
        chunk->digest = in->takeDigest();
        chunk->size = in->take32();
        return true;
    }

private:
    ListReader list_;
};

}  // namespace vault

#endif
