// Snapshots: what a tree held at one moment. The list of its files is a list of records, in sealed
// files named by the snapshot's UID; the registry has a line about each.
#ifndef VAULT_SNAPSHOT_H
#define VAULT_SNAPSHOT_H

#include <sys/stat.h>

#include "chunks.h"

namespace vault {

/// One entry. Entries come directory by directory, names in byte order.
struct Entry {
    char type = 0;           ///< f file, d directory, l link, h hard link, p pipe, c b devices
    std::string path, link;  ///< link: where a link leads; the first path of a hard link
    struct stat status {};
};

/// A piece of a file's content.
struct ChunkRef {
    Digest digest;
    uint32_t size;
};

struct Snapshot {
    std::string uid, sources;
    uint64_t generation = 0, time = 0, files = 0, bytes = 0, stored = 0;
};

/// Before or after, as entries come: '/' counts as the lowest character.
int comparePaths(const std::string &a, const std::string &b);

void addSnapshot(Catalogue *catalogue, const Snapshot &snapshot);
void dropSnapshot(Catalogue *catalogue, const Snapshot &snapshot);
/// All snapshots, the oldest first.
std::vector<Snapshot> listSnapshots(Catalogue *catalogue);

class SnapshotWriter {
public:
    SnapshotWriter(Catalogue *catalogue, const std::string &uid)
        : records_(catalogue, kSnapshots + uid) {}
    /// Adds an entry; the chunks of its content follow.
    void entry(const Entry &entry);
    void chunk(const ChunkRef &chunk);
    void finish() {
        flushChunks();
        records_.finish();
    }

private:
    void flushChunks();

    RecordWriter records_;
    Bytes chunks_;
};

class SnapshotReader {
public:
    SnapshotReader(Catalogue *catalogue, const std::string &uid)
        : records_(catalogue, kSnapshots + uid) {}
    /// Reads the next entry; false at the end. Chunks not asked for are skipped.
    bool next(Entry *entry);
    /// Reads the next chunk of the entry's content; false at its end.
    bool nextChunk(ChunkRef *chunk);

private:
    unsigned char peek();

    RecordReader records_;
    Bytes record_;  ///< the next one; empty when it is still to be read
    Cursor chunks_{record_};
};

}  // namespace vault

#endif
