// Chunks: files are cut into them, each is stored once, and found by its fingerprint.
#ifndef VAULT_CHUNKS_H
#define VAULT_CHUNKS_H

#include <functional>
#include <future>
#include <set>

#include "records.h"

namespace vault {

/// Cuts data at places that the data itself decides: behind an insertion the chunks are the same as
/// before. A gear hash runs over the bytes; a chunk ends where it falls below a limit, which is
/// stricter before the average size and looser behind it, so that sizes stay close.
class Chunker {
public:
    /// @param average  bytes of a chunk on average, a power of two.
    explicit Chunker(size_t average);
    /// Bytes that cut() must see, unless the data ends before.
    size_t most() const { return 4 * average_; }
    /// The length of the first chunk of @p data; all of it when it is shorter than a chunk.
    size_t cut(const unsigned char *data, size_t size) const;

private:
    size_t average_;
    uint64_t strict_, loose_;
    std::array<uint64_t, 256> gear_;
};

/// Where a chunk is.
struct ChunkRecord {
    Digest digest;
    uint64_t container;
    uint32_t offset, size;  ///< bytes of the container's content
};
void putChunk(Bytes *record, const ChunkRecord &chunk);
ChunkRecord takeChunk(Cursor *cursor);

/// All chunks of the vault: a sorted list in sealed files, and in memory a hash tree behind a Bloom
/// filter, which answers for most new chunks without a look into the tree.
class ChunkIndex {
public:
    ChunkIndex();
    ChunkIndex(const ChunkIndex &) = delete;
    ChunkIndex &operator=(const ChunkIndex &) = delete;
    ~ChunkIndex() { VexHashTreeDelete(&tree_); }

    void load(Catalogue *catalogue);
    /// Writes the chunks that @p wanted takes, which may change them, as index files of this
    /// generation, sorted by fingerprint.
    void write(Catalogue *catalogue, const std::function<bool(ChunkRecord *)> &wanted) const;

    uint64_t count() const { return VexHashTreeGetNumUsedNodes(tree_); }
    /// Whether there is such a chunk, and where.
    bool find(const Digest &digest, ChunkRecord *chunk) const;
    /// Adds a chunk, or changes where it is.
    void put(const ChunkRecord &chunk);
    void forEach(const std::function<void(const ChunkRecord &)> &visit) const;

private:
    void grow();

    VexHashTree *tree_;
    std::unique_ptr<BloomFilter> filter_;
};

std::string containerName(uint64_t number);

/// Packs chunks into containers, each behind its fingerprint and size, so that a container explains
/// itself. A full one is sealed and written by a second thread while the next one fills.
class ChunkWriter {
public:
    ChunkWriter(Catalogue *catalogue, ChunkIndex *index);

    /// Stores a chunk unless the vault has it.
    Digest put(const unsigned char *data, size_t size);
    /// Stores a chunk, whether or not the vault has it.
    void putAnew(const Digest &digest, const unsigned char *data, size_t size);
    /// Writes the last container.
    void finish();
    /// Whether a chunk was stored by this run.
    bool wrote(const ChunkRecord &chunk) const { return chunk.container >= first_; }

    uint64_t newBytes() const { return new_bytes_; }
    uint64_t storedBytes() const { return stored_bytes_; }

private:
    std::string seal(const Bytes &content, const std::string &name) const;
    void record(const std::string &name, const std::string &description);
    void wait();

    Catalogue *catalogue_;
    ChunkIndex *index_;
    uint64_t first_, number_, new_bytes_ = 0, stored_bytes_ = 0;
    Bytes content_;
    std::string sealing_name_;
    std::future<std::string> sealing_;  ///< describes the container that is written
};

/// Reads containers.
class ContainerReader {
public:
    ContainerReader(const Catalogue *catalogue, std::set<uint64_t> expected)
        : catalogue_(catalogue), expected_(std::move(expected)) {}
    /// A chunk's bytes, valid until the next call; fails when they are damaged. The expected
    /// containers, asked for in order, are read ahead by a second thread.
    const unsigned char *get(const ChunkRecord &chunk);
    /// Calls @p visit for every chunk of a container; fails where it is damaged.
    void forEach(uint64_t container,
                 const std::function<void(const ChunkRecord &, const unsigned char *)> &visit);

private:
    void load(uint64_t container);
    void readAhead(uint64_t container);
    void checkChunk(const ChunkRecord &chunk, const unsigned char *data) const;

    const Catalogue *catalogue_;
    std::set<uint64_t> expected_;
    uint64_t loaded_ = 0, ahead_ = 0, failed_ = 0;  ///< numbers of containers
    uint64_t checked_ = UINT64_MAX;                 ///< offset of a chunk found sound
    Plain content_;
    std::future<Plain> reading_;
};

}  // namespace vault

#endif
