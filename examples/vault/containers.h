// Containers: sealed files that hold some megabytes of chunks, each behind its fingerprint and
// size, so that a container explains itself.
#ifndef VAULT_CONTAINERS_H
#define VAULT_CONTAINERS_H

#include <future>
#include <list>
#include <set>

#include "chunk_index.h"

namespace vault {

inline std::string containerName(uint64_t number) {
    char name[40];
    snprintf(name, sizeof name, "%s%016llx", kContainers, static_cast<U64>(number));
    return name;
}

/// Packs chunks. A full container is sealed and written by a second thread while the next one
/// fills.
class ChunkWriter {
public:
    ChunkWriter(Catalogue *catalogue, ChunkIndex *index) : catalogue_(catalogue), index_(index) {}

    uint64_t newBytes() const { return new_bytes_; }
    uint64_t storedBytes() const { return stored_bytes_; }
    /// Whether a chunk was stored by this run.
    bool wrote(const ChunkRecord &chunk) const { return chunk.container >= first_; }

    /// Stores a chunk unless the vault has it.
    Digest put(const unsigned char *data, size_t size) {
        const Digest digest = fingerprint(data, size);
        ChunkRecord known;
        if (!index_->find(digest, &known)) {
            new_bytes_ += size;
            putAnew(digest, data, size);
        }
        return digest;
    }

    /// Stores a chunk, whether or not the vault has it.
    void putAnew(const Digest &digest, const unsigned char *data, size_t size) {
        if (!content_.empty() && content_.size() + kHeadBytes + size > kSealedBytes) seal();
        content_.reserve(kSealedBytes);
        putDigest(&content_, digest);
        put32(&content_, static_cast<uint32_t>(size));
        index_->put(
            {digest, number_, static_cast<uint32_t>(content_.size()), static_cast<uint32_t>(size)});
        content_.insert(content_.end(), data, data + size);
    }

    /// Writes the last container.
    void finish() {
        if (!content_.empty()) seal();
        wait();
    }

private:
    static constexpr size_t kHeadBytes = sizeof(Digest) + sizeof(uint32_t);
    static constexpr unsigned kGenerationShift = 24;  // a run can write 16 million containers

    void seal() {
        wait();
        sealing_ =
            std::async(std::launch::async, [this, content = std::exchange(content_, {}),
                                            path = catalogue_->path(containerName(number_++))] {
                return catalogue_->sealer.write(path, content);
            });
    }

    void wait() {
        if (!sealing_.valid()) return;
        const std::string description = sealing_.get();
        stored_bytes_ += strtoull(description.c_str(), nullptr, 10);
        catalogue_->addFile(containerName(number_ - 1), description);
    }

    Catalogue *catalogue_;
    ChunkIndex *index_;
    uint64_t first_ = catalogue_->generation() << kGenerationShift, number_ = first_;
    uint64_t new_bytes_ = 0, stored_bytes_ = 0;
    Bytes content_;
    std::future<std::string> sealing_;  ///< describes the container before number_
};

/// Reads containers. The last ones stay in memory, and the next one is read ahead by a second
/// thread, because files are mostly restored in the order in which they were backed up.
class ContainerReader {
public:
    explicit ContainerReader(Catalogue *catalogue) : catalogue_(catalogue) {
        for (const std::string &name : catalogue->files(kContainers))
            numbers_.insert(strtoull(name.c_str() + strlen(kContainers), nullptr, 16));
    }

    /// A chunk's bytes, valid until the next call; fails when they are damaged.
    const unsigned char *get(const ChunkRecord &chunk) {
        const Bytes &content = load(chunk.container);
        Cursor cursor{content.data(), content.size()};
        cursor.take(chunk.offset);
        const unsigned char *const data = cursor.take(chunk.size);
        check(fingerprint(data, chunk.size) == chunk.digest,
              "%s is damaged: the chunk at %u is not what was stored",
              catalogue_->path(containerName(chunk.container)).c_str(), chunk.offset);
        return data;
    }

    /// Calls @p visit for every chunk of a container; fails where it is damaged.
    void forEach(uint64_t container,
                 const std::function<void(const ChunkRecord &, const unsigned char *)> &visit) {
        const Bytes &content = load(container);
        for (Cursor cursor{content.data(), content.size()}; cursor.left != 0;) {
            const Digest digest = cursor.takeDigest();
            const uint32_t size = cursor.take32();
            const auto offset = static_cast<uint32_t>(content.size() - cursor.left);
            const ChunkRecord chunk{digest, container, offset, size};
            cursor.take(size);
            visit(chunk, get(chunk));
        }
    }

private:
    using Opened = std::pair<uint64_t, std::shared_future<Bytes>>;
    static constexpr size_t kMostOpened = 4;

    const Bytes &load(uint64_t container) {
        if (opened_.empty() || opened_.front().first != container) {
            open(container);
            const auto next = numbers_.upper_bound(container);
            if (next != numbers_.end()) open(*next);
        }
        return open(container).get();
    }

    /// Has a container in memory, or on its way there, as the first of those that are.
    const std::shared_future<Bytes> &open(uint64_t container) {
        const auto known = std::find_if(opened_.begin(), opened_.end(),
                                        [&](const Opened &one) { return one.first == container; });
        if (known != opened_.end()) {
            opened_.splice(opened_.begin(), opened_, known);
        } else {
            opened_.emplace_front(
                container, std::async(std::launch::async, [this, container] {
                    return catalogue_->sealer.read(catalogue_->path(containerName(container)));
                }));
        }
        if (opened_.size() > kMostOpened) opened_.pop_back();
        return opened_.front().second;
    }

    const Catalogue *catalogue_;
    std::set<uint64_t> numbers_;  ///< of all containers
    std::list<Opened> opened_;    ///< the last used first
};

}  // namespace vault

#endif
