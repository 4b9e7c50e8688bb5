// The catalogue: which files belong to the vault, and what they should hold.
//
// A vault changes by new files only. A run that writes takes a new generation number, copies the
// registry of the generation before to "state-<generation>.db", lists its files there, and makes
// all of it valid at once by replacing the file "root", which names the registry and its
// fingerprint. What "root" does not lead to is what an interrupted run left: the next one removes
// it.
#ifndef VAULT_CATALOGUE_H
#define VAULT_CATALOGUE_H

#include <map>

#include "common.h"

namespace vault {

inline constexpr char kContainers[] = "containers/", kSnapshots[] = "snapshots/",
                      kIndex[] = "index/", kTemporary[] = "tmp/";

class Catalogue {
public:
    explicit Catalogue(std::string directory) : directory_(std::move(directory)) {}
    Catalogue(const Catalogue &) = delete;
    Catalogue &operator=(const Catalogue &) = delete;
    ~Catalogue() { registry_.Close(); }

    /// Makes directories, counter and an empty registry where nothing is; commit() completes the
    /// vault.
    void create();
    /// Waits for other commands to end, reads "root" and opens the registry that it names.
    void open();
    /// Begins a new generation, once what interrupted runs left is removed.
    void beginChange();
    /// Makes all changes durable and valid at once, then deletes the files that were dropped.
    void commit();

    Sealer sealer;  ///< of the files that the catalogue lists
    uint64_t generation() const { return generation_; }
    const std::string &directory() const { return directory_; }
    std::string path(const std::string &name) const { return directory_ + "/" + name; }

    /// Items of the registry; an absent one reads as "".
    std::string get(const std::string &item);
    void set(const std::string &item, const std::string &value);
    void remove(const std::string &item);
    /// All items whose names begin with @p prefix, which is left out of the keys.
    std::map<std::string, std::string> list(const std::string &prefix);

    /// Size and checksum of a file as the registry keeps them.
    std::string describe(const std::string &name) const;
    void addFile(const std::string &name, const std::string &description);
    /// Takes a file out; it is deleted once that is committed.
    void dropFile(const std::string &name);
    /// The names of all files that begin with @p prefix.
    std::vector<std::string> files(const std::string &prefix);
    /// Fails when a file is missing or not as it was written.
    void checkFile(const std::string &name);
    /// The same for all files, each of which is named; false if there is any.
    bool checkFiles();
    /// The same for containers, by their sizes alone, which needs no reading.
    bool checkContainerSizes();

private:
    void writeRoot();
    void openRegistry();
    void nextGeneration();
    void sweep();
    std::string digestOf(const std::string &name) const;
    /// Fails with SQLite's message.
    void expect(bool good) const;
    std::string stateName() const { return "state-" + std::to_string(generation_) + ".db"; }

    std::string directory_;
    uint64_t generation_ = 0, committed_ = 0;
    std::unique_ptr<Fd> lock_;
    SQLiteConnection registry_;
    SQLiteException error_;
    std::vector<std::string> dropped_;
};

}  // namespace vault

#endif
