// The catalogue: which files belong to the vault, and what they should hold.
//
// A vault changes by new files only. A run that writes takes a new generation number, copies the
// registry of the generation before, lists its new files in the copy, and makes all of it valid at
// once by giving the copy the name "state/<generation>-<fingerprint>.db". The newest of these
// counts. What it does not list is what an interrupted run left: the next one removes it.
#ifndef VAULT_CATALOGUE_H
#define VAULT_CATALOGUE_H

#include <sys/stat.h>

#include "sealer.h"

namespace vault {

inline constexpr char kContainers[] = "containers/", kSnapshots[] = "snapshots/",
                      kIndex[] = "index/", kTemporary[] = "tmp/";

class Catalogue : Unique {
public:
    explicit Catalogue(std::string directory) : directory_(std::move(directory)) {}
    ~Catalogue() { registry_.Close(); }

    Sealer sealer;  ///< of the files that the catalogue lists
    uint64_t generation() const { return generation_; }
    std::string path(const std::string &name) const { return directory_ + "/" + name; }

    /// Makes directories, counter and a registry where nothing is; commit() completes the vault.
    void create() {
        done(CreateDirA(directory_.c_str(), 0700) == 0);
        // what the registry does not list will be removed: it must not be somebody's
        check(DirectoryIterator(directory_) == DirectoryIterator(),
              "%s is there already and is no empty directory", directory_.c_str());
        for (const char *name : kDirectories)  // fails where another init runs
            check(mkdir(path(name).c_str(), 0700) == 0, "%s cannot be made: %m",
                  path(name).c_str());
        generation_ = 1;
        done(WriteIdToPath(path(kCounter).c_str(), kCounter, generation_) == 0);
        openRegistry(kChanging);
        expect(registry_.CreateRegistryTable(&error_) && registry_.SetAutoCommit(false, &error_));
    }

    /// Waits for other commands to end and opens the newest registry.
    void open() {
        check(vex_access(path(kStates).c_str(), F_OK) == 0, "%s is no vault", directory_.c_str());
        if (vex_access(directory_.c_str(), W_OK) == 0 || errno != EROFS) {  // it can change
            lock_ = std::make_unique<Fd>(VexLockFileAcquire(path("lock").c_str(), -1));
            done(lock_->fd >= 0);
        }
        for (const auto &entry : DirectoryIterator(path(kStates)))
            state_ = std::max(state_, kStates + entry.path().filename().string());
        check(!state_.empty(), "%s has no state: lost, or init cut short", directory_.c_str());
        generation_ = strtoull(state_.c_str() + strlen(kStates), nullptr, 16);
        check(state_ == stateName(state_), "%s is damaged", path(state_).c_str());
        openRegistry(state_);
    }

    /// Begins a new generation, once what interrupted runs left is removed.
    void beginChange() {
        sweep();
        nextGeneration();
        registry_.Close();
        done(FileCopy(path(state_).c_str(), path(kChanging).c_str(), 0600) >= 0);
        openRegistry(kChanging);
        // nobody reads the copy before it is complete, so SQLite need not protect it by a journal
        expect(registry_.Execute("PRAGMA journal_mode=OFF", &error_) &&
               registry_.SetAutoCommit(false, &error_));
    }

    /// Makes all changes durable and valid at once, then deletes the files that were dropped.
    void commit() {
        expect(registry_.SetAutoCommit(true, &error_) && error_.IsGood());  // SQLite syncs the file
        registry_.Close();
        for (const char *name : kDirectories) done(dirfsync(path(name).c_str(), 0) == 0);
        done(dirfsync(directory_.c_str(), 0) == 0);
        const std::string next = stateName(kChanging);
        done(rename_dirfsync(path(kChanging).c_str(), path(next).c_str(), path(kStates).c_str(),
                             0) == 0);
        if (!state_.empty()) dropped_.push_back(state_);
        for (const std::string &name : dropped_)
            if (unlink(path(name).c_str()) != 0)
                WarningA(-1, "%s is left for the next run to delete: %m", name.c_str());
    }

    /// An item of the registry; an absent one reads as "".
    std::string get(const std::string &item) {
        std::string value = registry_.GetRegistryItem(item, &error_);
        expect(error_.IsGood());
        return value;
    }
    void set(const std::string &item, const std::string &value) {
        expect(registry_.SetRegistryItem(item, value, &error_));
    }
    void remove(const std::string &item) {
        SQLitePreparedStatement query(&registry_, "DELETE FROM registry WHERE name = ?", &error_);
        query.SetString(1, item);
        expect(query.Execute(&error_));
    }
    /// All items whose names begin with @p prefix, which is left out of the keys.
    std::map<std::string, std::string> list(const std::string &prefix) {
        std::map<std::string, std::string> items;
        SQLitePreparedStatement query(
            &registry_, "SELECT name, value FROM registry WHERE name BETWEEN ?1 AND ?1 || '~'",
            &error_);
        query.SetString(1, prefix);
        SQLiteResultSet rows = query.ExecuteQuery(&error_);
        for (; error_.IsGood() && !rows.IsLast(); rows.Next(&error_))
            items[rows.GetString(0).substr(prefix.size())] = rows.GetString(1);
        expect(error_.IsGood());
        return items;
    }

    /// Lists a file that Sealer::write() described.
    void addFile(const std::string &name, const std::string &description) {
        set(kFile + name, description);
    }
    /// Takes a file out; it is deleted once that is committed.
    void dropFile(const std::string &name) {
        dropped_.push_back(name);
        remove(kFile + name);
    }
    /// The names of all files that begin with @p prefix, sorted.
    std::vector<std::string> files(const std::string &prefix) {
        std::vector<std::string> names;
        for (const auto &[name, description] : list(kFile + prefix)) names.push_back(prefix + name);
        return names;
    }
    /// Whether these files are as they were written, or at least as long; names those that are not.
    bool sound(const std::string &prefix, bool by_size = false) {
        bool sound = true;
        for (const auto &[rest, description] : list(kFile + prefix)) {
            const std::string file = path(prefix + rest);
            if (by_size ? FileSizeGet(file.c_str()) == strtoll(description.c_str(), nullptr, 10)
                        : Sealer::describe(file) == description)
                continue;
            ErrorA(-1, "%s is missing or damaged", file.c_str());
            sound = false;
        }
        return sound;
    }
    bool counterIsSound() const {
        const std::string name = path(kCounter);
        const Fd file(::open(name.c_str(), O_RDONLY | O_CLOEXEC));
        uint64_t value = 0;
        return ReadId(name.c_str(), kCounter, &value, file.fd, generation_) == 0;
    }

private:
    using DirectoryIterator = std::filesystem::directory_iterator;
    static constexpr char kFile[] = "file:", kCounter[] = "sequence", kStates[] = "state/",
                          kChanging[] = "tmp/state.db";
    static constexpr const char *kDirectories[] = {kContainers, kSnapshots, kIndex, kTemporary,
                                                   kStates};

    /// Fails with SQLite's message.
    void expect(bool good) const {
        check(good, "%s, registry: %s", directory_.c_str(), error_.what());
    }

    void openRegistry(const std::string &name) {
        registry_.SetDBFilename(path(name));
        expect(registry_.Open(&error_));
    }

    /// What a registry is named that is valid in this generation, with the fingerprint of a file.
    std::string stateName(const std::string &file) const {
        char digest[65], name[100];
        done(SHA256FromFile_r(path(file).c_str(), digest, sizeof digest) != nullptr);
        snprintf(name, sizeof name, "%s%016llx-%s.db", kStates, static_cast<U64>(generation_),
                 digest);
        return name;
    }

    /// The counter makes generations unique for ever; the state knows the last, should it be
    /// damaged.
    void nextGeneration() {
        const std::string counter = path(kCounter);
        const Fd file(OpenId(counter.c_str(), kCounter, &generation_, generation_));
        if (file.fd >= 0)
            return done(NextId(counter.c_str(), kCounter, &generation_, file.fd) == 0);
        WarningA(-1, "%s is made anew", counter.c_str());
        done(WriteIdToPath(counter.c_str(), kCounter, ++generation_) == 0);
    }

    /// Removes files that the registry does not list, where only the vault itself makes files.
    void sweep() {
        const std::map<std::string, std::string> listed = list(kFile);
        const std::unique_ptr<DirStream, decltype(&DirCloseA)> walk(
            DirOpenA(directory_.c_str(), DDS_PHYSICAL | DDS_NOCHDIR, nullptr, 0), &DirCloseA);
        while (const DirEntry *entry = DirGetNextA(walk.get())) {
            if (entry->info != DDS_F) continue;
            const std::string name = entry->path + directory_.size() + 1;
            const bool ours =
                std::any_of(std::begin(kDirectories), std::end(kDirectories),
                            [&name](const char *prefix) { return name.starts_with(prefix); });
            if (!ours || name == state_ || listed.contains(name)) continue;
            check(unlink(entry->path) == 0, "%s cannot be removed: %m", entry->path);
            InfoA(-1, "removed %s, which an interrupted run left", entry->path);
        }
    }

    std::string directory_, state_;  ///< state: the name of the newest registry
    uint64_t generation_ = 0;
    std::unique_ptr<Fd> lock_;
    SQLiteConnection registry_;
    SQLiteException error_;
    std::vector<std::string> dropped_;
};

}  // namespace vault

#endif
