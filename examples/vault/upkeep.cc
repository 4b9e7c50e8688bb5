// "vault verify" reads everything and names every file that is not as it was written. "vault prune"
// forgets old snapshots, deletes the containers that none needs any more, and packs what is left of
// mostly empty ones anew.
#include "commands.h"
#include "containers.h"
#include "snapshot.h"

namespace vault {
namespace {

/// Calls @p visit for every chunk of a snapshot's files.
template <typename Visit>
void forEachChunk(Catalogue *catalogue, const std::string &uid, const ChunkIndex &index,
                  Visit visit) {
    SnapshotReader reader(catalogue, uid);
    ChunkRef chunk;
    ChunkRecord known;
    for (Entry entry; reader.next(&entry);)
        for (; reader.nextChunk(&chunk); visit(&known))
            check(index.find(chunk.digest, &known), "snapshot %s: a chunk of %s is lost",
                  uid.c_str(), entry.path.c_str());
}

/// Bit of ChunkRecord::size, larger than any chunk, that marks what a snapshot needs.
constexpr uint32_t kNeeded = uint32_t{1} << 31;

class Prune {
public:
    explicit Prune(Vault *vault)
        : catalogue_(&vault->catalogue),
          keep_(vault->settings.keep),
          chunks_(catalogue_, &index_) {}

    void run() {
        index_.load(catalogue_);
        index_.forEach([this](const auto &chunk) { uses_[chunk.container].total += chunk.size; });
        const size_t forgotten = forget();
        ContainerReader reader(catalogue_);
        uint64_t freed = 0;
        for (const auto &[container, use] : uses_) {
            if (!mostlyUnused(use)) continue;
            freed += use.total - use.needed;
            if (use.needed != 0)
                reader.forEach(container, [this](auto &chunk, auto *data) { move(chunk, data); });
            catalogue_->dropFile(containerName(container));
        }
        chunks_.finish();
        for (const std::string &name : catalogue_->files(kIndex)) catalogue_->dropFile(name);
        // what a container holds stays listed as long as it is there: it tells how full it is, and
        // another backup may need it
        index_.write(catalogue_, [this](ChunkRecord *chunk) {
            chunk->size &= ~kNeeded;
            return chunks_.wrote(*chunk) || !mostlyUnused(uses_.at(chunk->container));
        });
        catalogue_->commit();
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
        const std::vector<Snapshot> snapshots = listSnapshots(catalogue_);
        const size_t kept = keep_ == 0 ? snapshots.size() : std::min(keep_, snapshots.size());
        const size_t forgotten = snapshots.size() - kept;
        for (size_t i = 0; i < forgotten; ++i) snapshots[i].drop(catalogue_);
        for (size_t i = forgotten; i < snapshots.size(); ++i)
            forEachChunk(catalogue_, snapshots[i].uid, index_, [this](ChunkRecord *chunk) {
                if ((chunk->size & kNeeded) != 0) return;
                uses_[chunk->container].needed += chunk->size;
                chunk->size |= kNeeded;
                index_.put(*chunk);
            });
        return forgotten;
    }

    /// Stores a chunk anew if it is needed.
    void move(const ChunkRecord &chunk, const unsigned char *data) {
        ChunkRecord known;
        if (index_.find(chunk.digest, &known) && known.container == chunk.container &&
            (known.size & kNeeded) != 0)
            chunks_.putAnew(chunk.digest, data, chunk.size);
    }

    Catalogue *catalogue_;
    size_t keep_;
    ChunkIndex index_;
    ChunkWriter chunks_;
    std::map<uint64_t, Use> uses_;  ///< bytes, by container
};

/// Reads all containers, and looks whether every chunk is where the index says.
bool checkContainers(Catalogue *catalogue, const ChunkIndex &index) {
    std::set<uint64_t> containers;
    index.forEach([&](const auto &chunk) { containers.insert(chunk.container); });
    Progress progress("verified");
    ContainerReader reader(catalogue);
    uint64_t found = 0;
    bool sound = true;
    const auto look = [&](const ChunkRecord &chunk, const unsigned char *) {
        ChunkRecord known;
        found += index.find(chunk.digest, &known) && known.container == chunk.container &&
                 known.offset == chunk.offset && known.size == chunk.size;
        progress.add(0, chunk.size);
    };
    for (const uint64_t container : containers)
        sound &= succeeds([&] { reader.forEach(container, look); });
    printf("%llu of %llu chunks, %s; %.1f MB/s\n", static_cast<U64>(found),
           static_cast<U64>(index.count()), sizeText(progress.bytes).c_str(),
           progress.megabytesPerSecond());
    return sound && found == index.count();
}

}  // namespace

void verify(Vault *vault) {
    Catalogue *const catalogue = &vault->catalogue;
    bool sound = catalogue->counterIsSound();
    sound &= catalogue->sound("");
    openKey(vault);
    const std::vector<Snapshot> snapshots = listSnapshots(catalogue);
    ChunkIndex index;
    index.load(catalogue);
    sound &= checkContainers(catalogue, index);
    for (const Snapshot &snapshot : snapshots)
        sound &= succeeds([&] { forEachChunk(catalogue, snapshot.uid, index, [](auto *) {}); });
    check(sound, "%s is damaged: see above", vault->settings.directory.c_str());
    printf("%zu snapshots: all is as it was written\n", snapshots.size());
}

void prune(Vault *vault) {
    vault->catalogue.beginChange();
    Prune(vault).run();
}

}  // namespace vault
