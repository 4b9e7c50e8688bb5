// "vault verify" reads everything and names every file that is not as it was written. "vault prune"
// forgets old snapshots, deletes the containers that none needs any more, and packs what is left of
// mostly empty ones anew.
#include "commands.h"

namespace vault {
namespace {

/// Calls @p visit for every chunk of a snapshot's files; it tells whether the chunk is known.
template <typename Visit>
void forEachChunk(Vault *vault, const std::string &uid, Visit visit) {
    SnapshotReader reader(&vault->catalogue, uid);
    ChunkRef chunk;
    for (Entry entry; reader.next(&entry);)
        while (reader.nextChunk(&chunk))
            check(visit(chunk.digest), "snapshot %s: a chunk of %s is lost", uid.c_str(),
                  entry.path.c_str());
}

/// Bit of ChunkRecord::size, larger than any chunk, that marks what a snapshot needs.
constexpr uint32_t kNeeded = uint32_t{1} << 31;

class Prune {
public:
    explicit Prune(Vault *vault) : vault_(vault), chunks_(&vault->catalogue, &index_) {}

    void run() {
        index_.load(&vault_->catalogue);
        index_.forEach([this](const auto &chunk) { uses_[chunk.container].total += chunk.size; });
        const size_t forgotten = forget();
        uint64_t freed = 0;
        for (const auto &[container, use] : uses_) {
            if (!mostlyUnused(use)) continue;
            freed += use.total - use.needed;
            if (use.needed != 0) move(container);
            vault_->catalogue.dropFile(containerName(container));
        }
        chunks_.finish();
        for (const std::string &name : vault_->catalogue.files(kIndex))
            vault_->catalogue.dropFile(name);
        // what a container holds stays listed as long as it is there: it tells how full it is, and
        // another backup may need it
        index_.write(&vault_->catalogue, [this](ChunkRecord *chunk) {
            chunk->size &= ~kNeeded;
            return chunks_.wrote(*chunk) || !mostlyUnused(uses_.at(chunk->container));
        });
        vault_->catalogue.commit();
        printf("forgot %zu snapshots and %s that nothing needs any more\n", forgotten,
               sizeText(freed).c_str());
    }

private:
    struct Use {
        uint64_t needed = 0, total = 0;
    };
    static bool mostlyUnused(const Use &use) { return use.needed * 2 < use.total; }

    /// Drops the snapshots that are too many and marks what the others need.
    size_t forget() {
        const std::vector<Snapshot> snapshots = listSnapshots(&vault_->catalogue);
        const size_t keep = vault_->settings.keep == 0 ? SIZE_MAX : vault_->settings.keep;
        const size_t forgotten = snapshots.size() - std::min(keep, snapshots.size());
        for (size_t i = 0; i < forgotten; ++i) dropSnapshot(&vault_->catalogue, snapshots[i]);
        for (size_t i = forgotten; i < snapshots.size(); ++i)
            forEachChunk(vault_, snapshots[i].uid, [this](const auto &digest) {
                ChunkRecord chunk;
                const bool known = index_.find(digest, &chunk);
                if (known && (chunk.size & kNeeded) == 0) {
                    uses_[chunk.container].needed += chunk.size;
                    chunk.size |= kNeeded;
                    index_.put(chunk);
                }
                return known;
            });
        return forgotten;
    }

    /// Stores what is needed of a container anew.
    void move(uint64_t container) {
        ContainerReader reader(&vault_->catalogue, {});
        reader.forEach(container, [this](const auto &chunk, const unsigned char *data) {
            ChunkRecord known;
            if (index_.find(chunk.digest, &known) && known.container == chunk.container &&
                (known.size & kNeeded) != 0)
                chunks_.putAnew(chunk.digest, data, chunk.size);
        });
    }

    Vault *vault_;
    ChunkIndex index_;
    ChunkWriter chunks_;
    std::map<uint64_t, Use> uses_;  ///< bytes, by container
};

/// Reads all containers, and looks whether every chunk is where the index says.
bool checkContainers(Vault *vault, const ChunkIndex &index) {
    std::set<uint64_t> containers;
    index.forEach([&](const auto &chunk) { containers.insert(chunk.container); });
    Progress progress("verified");
    ContainerReader reader(&vault->catalogue, containers);
    uint64_t found = 0;
    bool sound = true;
    const auto look = [&](const ChunkRecord &chunk, const unsigned char *) {
        ChunkRecord known;
        found += index.find(chunk.digest, &known) && known.container == chunk.container &&
                 known.offset == chunk.offset && known.size == chunk.size;
        progress.add(0, chunk.size);
    };
    for (const uint64_t container : containers)
        sound = succeeds([&] { reader.forEach(container, look); }) && sound;
    printf("%llu of %llu chunks, %s; %.1f MB/s\n", static_cast<U64>(found),
           static_cast<U64>(index.count()), sizeText(progress.bytes()).c_str(),
           progress.megabytesPerSecond());
    return sound && found == index.count();
}

}  // namespace

void verify(Vault *vault) {
    bool sound = vault->catalogue.checkFiles();
    vault->openKey();
    ChunkIndex index;
    const std::vector<Snapshot> snapshots = listSnapshots(&vault->catalogue);
    index.load(&vault->catalogue);
    sound = checkContainers(vault, index) && sound;
    const auto known = [&index](const Digest &digest) {
        ChunkRecord chunk;
        return index.find(digest, &chunk);
    };
    for (const Snapshot &snapshot : snapshots)
        sound = succeeds([&] { forEachChunk(vault, snapshot.uid, known); }) && sound;
    check(sound, "%s is damaged: see above", vault->settings.directory.c_str());
    printf("%zu snapshots: all is as it was written\n", snapshots.size());
}

void prune(Vault *vault) {
    vault->catalogue.beginChange();
    Prune(vault).run();
}

}  // namespace vault
