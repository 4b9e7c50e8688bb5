// Where every chunk of the vault is.
#ifndef VAULT_CHUNK_INDEX_H
#define VAULT_CHUNK_INDEX_H

#include <functional>

#include "lists.h"

namespace vault {

struct ChunkRecord {
    Digest digest;
    uint64_t container;
    uint32_t offset, size;  ///< bytes of the container's content
};

/// A sorted list on the disk, and in memory a hash tree behind a Bloom filter, which answers for
/// most new chunks without a look into the tree.
class ChunkIndex : Unique {
public:
    using Test = std::function<bool(ChunkRecord *)>;

    ~ChunkIndex() { VexHashTreeDelete(&tree_); }

    uint64_t count() const { return VexHashTreeGetNumUsedNodes(tree_); }

    /// Whether there is such a chunk, and where.
    bool find(const Digest &digest, ChunkRecord *chunk) const {
        if (!filter_->Matches(forFilter(digest))) return false;
        chunk->digest = digest;
        return VexHashTreeGet(tree_, chunk, chunk) == 1;
    }

    /// Adds a chunk, or changes where it is.
    void put(const ChunkRecord &chunk) {
        if (count() >> VexHashTreeGetBits(tree_) != 0) grow();
        filter_->Insert(forFilter(chunk.digest));
        done(VexHashTreeReplaceOrInsert(tree_, &chunk, nullptr) >= 0);
    }

    void forEach(const std::function<void(const ChunkRecord &)> &visit) const {
        Position position(tree_);
        for (ChunkRecord chunk; position.next(&chunk);) visit(chunk);
    }

    void load(Catalogue *catalogue) {
        ListReader list(catalogue, kIndex);
        while (Cursor *item = list.next()) {
            const Digest digest = item->takeDigest();
            put({digest, item->take64(), item->take32(), item->take32()});
        }
    }

    /// Writes the chunks that @p wanted takes, which may change them, as a list of this generation
    /// in the order of their fingerprints, sorted outside memory.
    void write(Catalogue *catalogue, const Test &wanted) const {
        const std::string path = catalogue->path(std::string(kTemporary) + "index");
        const std::unique_ptr<FILE, int (*)(FILE *)> sorted(fopen(path.c_str(), "w+xe"), &fclose);
        check(sorted != nullptr && unlink(path.c_str()) == 0, "%s cannot be made: %m",
              path.c_str());
        Unsorted unsorted{Position(tree_), wanted};
        unsorted.sort(catalogue->path(kTemporary), sorted.get());
        ListWriter list(catalogue, kIndex + std::to_string(catalogue->generation()));
        for (ChunkRecord chunk; fread(&chunk, sizeof chunk, 1, sorted.get()) == 1; list.endItem()) {
            putDigest(&list.content, chunk.digest);
            put64(&list.content, chunk.container);
            put32(&list.content, chunk.offset);
            put32(&list.content, chunk.size);
        }
        check(ferror(sorted.get()) == 0, "the sorted index cannot be read: %m");
        list.finish();
    }

private:
    static constexpr uint32_t kFirstBits = 12, kMostBits = 29;
    static constexpr uint64_t kSlabBytes = uint64_t{2} << 20;
    static constexpr double kFalsePositives = 0.03;

    static crfp_digest_t forFilter(const Digest &digest) {
        crfp_digest_t key{};
        memcpy(key.bytes, digest.data(), digest.size());
        return key;
    }

    /// Keeps about a bucket of the tree and eight bits of the filter for each chunk.
    void grow() {
        const uint32_t bits = VexHashTreeGetBits(tree_) + 1;
        if (bits > kMostBits) return;
        done(VexHashTreeSetBits(tree_, bits) == 0);
        filter_ = std::make_unique<BloomFilter>(1UL << bits, kFalsePositives);
        forEach([this](const ChunkRecord &chunk) { filter_->Insert(forFilter(chunk.digest)); });
    }

    struct Position : Unique {
        explicit Position(VexHashTree *tree) : iterator(VexHashTreeIteratorNewBegin(tree)) {
            done(iterator != nullptr);
        }
        ~Position() { VexHashTreeIteratorDelete(&iterator); }
        bool next(ChunkRecord *chunk) { return VexHashTreeIteratorNext(iterator, chunk) == 1; }
        VexHashTreeIterator *iterator;
    };

    /// What a sort reads, and its callbacks.
    struct Unsorted {
        Position position;
        const Test &wanted;

        void sort(const std::string &temporary, FILE *sorted) {
            constexpr uint64_t kBatch = 65536, kFilesToMerge = 16;
            BinarySortCtx *context =
                BinarySortCtxConstruct(read, compare, nullptr, write, free, nullptr, this, kBatch,
                                       kBatch * sizeof(ChunkRecord), temporary.c_str(),
                                       kFilesToMerge, 0, BINARY_SORT_QUIET);
            const bool good = context != nullptr && BinarySortFp(context, nullptr, sorted) == 0 &&
                              fseek(sorted, 0, SEEK_SET) == 0;
            BinarySortCtxDestruct(&context);
            check(good, "the index cannot be sorted in %s: %m", temporary.c_str());
        }
        bool next(ChunkRecord *chunk) {
            while (position.next(chunk))
                if (wanted(chunk)) return true;
            return false;
        }
        /// From the tree, or from a temporary file.
        static void *read(void *user, FILE *stream, uint64_t *counted) {
            auto chunk = std::make_unique<ChunkRecord>();
            *counted = sizeof *chunk;
            if (stream == nullptr ? static_cast<Unsorted *>(user)->next(chunk.get())
                                  : fread(chunk.get(), sizeof *chunk, 1, stream) == 1)
                return chunk.release();
            errno = stream != nullptr && ferror(stream) != 0 ? EIO : ENOENT;  // ENOENT: the end
            return nullptr;
        }
        static int compare(void *user, const void *a, uint64_t, const void *b, uint64_t) {
            return VexHashTreeCompareDigest(user, a, b);
        }
        static uint64_t write(void *, void *chunk, FILE *stream, uint64_t) {
            constexpr size_t kSize = sizeof(ChunkRecord);
            return safe_fwrite(chunk, kSize, 1, stream) == 1 ? kSize : UINT64_MAX;
        }
        static void free(void *, void *chunk) { delete static_cast<ChunkRecord *>(chunk); }
    };

    VexHashTree *tree_ = VexHashTreeNew(kFirstBits, sizeof(ChunkRecord), VexHashTreeCompareDigest,
                                        VexHashTreeHashDigest, nullptr, kSlabBytes);
    std::unique_ptr<BloomFilter> filter_ =
        std::make_unique<BloomFilter>(1UL << kFirstBits, kFalsePositives);
};

}  // namespace vault

#endif
