#include "catalogue.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>

namespace vault {
namespace {

constexpr char kFile[] = "file:", kCounter[] = "sequence", kRoot[] = "root", kFresh[] = "root.new";
constexpr const char *kSubdirectories[] = {kContainers, kSnapshots, kIndex, kTemporary};

std::string checked(const std::string &text) {
    return text + "check " + toText(fingerprint(text.data(), text.size())) + "\n";
}

}  // namespace

void Catalogue::expect(bool good) const {
    check(good, "%s: %s", path(stateName()).c_str(), error_.what());
}

std::string Catalogue::digestOf(const std::string &name) const {
    char text[65] = "";
    done(SHA256FromFile_r(path(name).c_str(), text, sizeof text) != nullptr);
    return text;
}

void Catalogue::create() {
    std::error_code error_code;
    done(CreateDirA(directory_.c_str(), 0700) == 0);
    // what the registry does not list will be removed: it must not be somebody's
    check(std::filesystem::is_empty(directory_, error_code),
          "%s is there already and is no empty directory", directory_.c_str());
    for (const char *name : kSubdirectories)  // fails where another init runs
        check(mkdir(path(name).c_str(), 0700) == 0, "%s cannot be made: %m", path(name).c_str());
    generation_ = 1;
    done(WriteIdToPath(path(kCounter).c_str(), kCounter, generation_) == 0);
    openRegistry();
    expect(registry_.CreateRegistryTable(&error_));
}

void Catalogue::open() {
    check(vex_access(path(kRoot).c_str(), F_OK) == 0, "%s is no vault: it has no file \"root\"",
          directory_.c_str());
    if (vex_access(directory_.c_str(), W_OK) == 0 || errno != EROFS) {  // else nothing can change
        lock_ = std::make_unique<Fd>(VexLockFileAcquire(path("lock").c_str(), -1));
        done(lock_->fd >= 0);
    }
    char text[256] = "", digest[65] = "";
    (void)FileLoadToBuffer(path(kRoot).c_str(), text, sizeof text - 1);
    const std::string found = text, body = found.substr(0, found.find("check "));
    check(found == checked(body) && sscanf(text, "vault 1\ngeneration %" SCNu64 "\nstate %64s\n",
                                           &committed_, digest) == 2,
          "%s is damaged", path(kRoot).c_str());
    generation_ = committed_;
    check(digestOf(stateName()) == digest, "%s is damaged: \"root\" has another fingerprint of it",
          path(stateName()).c_str());
    openRegistry();
}

void Catalogue::writeRoot() {
    const std::string text = checked("vault 1\ngeneration " + std::to_string(generation_) +
                                     "\nstate " + digestOf(stateName()) + "\n");
    writeNewFile(path(kFresh), text.data(), text.size());
    done(rename_dirfsync(path(kFresh).c_str(), path(kRoot).c_str(), directory_.c_str(), 0) == 0);
}

void Catalogue::openRegistry() {
    registry_.SetDBFilename(path(stateName()));
    expect(registry_.Open(&error_));
}

/// The counter makes generations unique for ever; should it be damaged, "root" knows the last one.
void Catalogue::nextGeneration() {
    const std::string counter = path(kCounter);
    const Fd file(OpenId(counter.c_str(), kCounter, &generation_, committed_));
    if (file.fd >= 0) return done(NextId(counter.c_str(), kCounter, &generation_, file.fd) == 0);
    WarningA(-1, "%s is made anew", counter.c_str());
    generation_ = committed_ + 1;
    done(WriteIdToPath(counter.c_str(), kCounter, generation_) == 0);
}

void Catalogue::beginChange() {
    sweep();
    dropped_.push_back(stateName());
    nextGeneration();
    registry_.Close();
    done(FileCopy(path(dropped_[0]).c_str(), path(stateName()).c_str(), 0600) >= 0);
    openRegistry();
    // the file counts only once "root" names it, so SQLite need not protect it by a journal
    expect(registry_.Execute("PRAGMA journal_mode=OFF", &error_));
    expect(registry_.SetAutoCommit(false, &error_));
}

void Catalogue::commit() {
    if (committed_ != 0) expect(registry_.SetAutoCommit(true, &error_) && error_.IsGood());
    registry_.Close();
    for (const char *name : kSubdirectories) done(dirfsync(path(name).c_str(), 0) == 0);
    done(dirfsync(directory_.c_str(), 0) == 0);  // the registry must be there before "root" says so
    writeRoot();
    for (const std::string &name : dropped_)
        if (unlink(path(name).c_str()) != 0)
            WarningA(-1, "%s is left for the next run to delete: %m", name.c_str());
}

/// Removes files that the registry does not list, where only the vault itself makes files.
void Catalogue::sweep() {
    const std::map<std::string, std::string> listed = list(kFile);
    const std::unique_ptr<DirStream, decltype(&DirCloseA)> walk(
        DirOpenA(directory_.c_str(), DDS_PHYSICAL | DDS_NOCHDIR, nullptr, 0), &DirCloseA);
    while (const DirEntry *entry = DirGetNextA(walk.get())) {
        if (entry->info != DDS_F) continue;
        const std::string name = entry->path + directory_.size() + 1;
        const bool ours = name == kFresh || name.starts_with("state-") ||
                          std::any_of(std::begin(kSubdirectories), std::end(kSubdirectories),
                                      [&name](auto *prefix) { return name.starts_with(prefix); });
        if (!ours || name == stateName() || listed.contains(name)) continue;
        check(unlink(entry->path) == 0, "%s cannot be removed: %m", entry->path);
        InfoA(-1, "removed %s, which an interrupted run left", name.c_str());
    }
}

std::string Catalogue::get(const std::string &item) {
    std::string value = registry_.GetRegistryItem(item, &error_);
    expect(error_.IsGood());
    return value;
}

void Catalogue::set(const std::string &item, const std::string &value) {
    expect(registry_.SetRegistryItem(item, value, &error_));
}

void Catalogue::remove(const std::string &item) {
    SQLitePreparedStatement statement(&registry_, "DELETE FROM registry WHERE name = ?", &error_);
    statement.SetString(1, item);
    expect(statement.Execute(&error_));
}

std::map<std::string, std::string> Catalogue::list(const std::string &prefix) {
    std::map<std::string, std::string> items;
    SQLitePreparedStatement statement(
        &registry_, "SELECT name, value FROM registry WHERE substr(name, 1, length(?1)) = ?1",
        &error_);
    statement.SetString(1, prefix);
    SQLiteResultSet rows = statement.ExecuteQuery(&error_);
    for (; error_.IsGood() && !rows.IsLast(); rows.Next(&error_))
        items[rows.GetString(0).substr(prefix.size())] = rows.GetString(1);
    expect(error_.IsGood());
    return items;
}

std::string Catalogue::describe(const std::string &name) const {
    // chunks have fingerprints of their own: for containers a checksum, which is faster, is enough
    return std::to_string(FileSizeGet(path(name).c_str())) + " " +
           (name.starts_with(kContainers) ? std::to_string(CRCFromFile(path(name).c_str()))
                                          : digestOf(name));
}

void Catalogue::addFile(const std::string &name, const std::string &description) {
    set(kFile + name, description);
}

void Catalogue::dropFile(const std::string &name) {
    dropped_.push_back(name);
    remove(kFile + name);
}

std::vector<std::string> Catalogue::files(const std::string &prefix) {
    std::vector<std::string> names;
    for (const auto &[name, description] : list(kFile + prefix)) names.push_back(prefix + name);
    return names;
}

void Catalogue::checkFile(const std::string &name) {
    check(describe(name) == get(kFile + name), "%s is missing or damaged", path(name).c_str());
}

bool Catalogue::checkContainerSizes() {
    bool sound = true;
    for (const auto &[number, description] : list(std::string(kFile) + kContainers)) {
        const std::string name = path(kContainers + number);
        if (FileSizeGet(name.c_str()) == strtoll(description.c_str(), nullptr, 10)) continue;
        ErrorA(-1, "%s is missing or damaged", name.c_str());
        sound = false;
    }
    return sound;
}

bool Catalogue::checkFiles() {
    bool sound = true;
    for (const std::string &name : files("")) sound = succeeds([&] { checkFile(name); }) && sound;
    uint64_t value = 0;
    const std::string counter = path(kCounter);
    const Fd file(::open(counter.c_str(), O_RDONLY | O_CLOEXEC));
    return succeeds([&] {
               check(ReadId(counter.c_str(), kCounter, &value, file.fd, committed_) == 0,
                     "%s is missing or damaged", counter.c_str());
           }) &&
           sound;
}

}  // namespace vault
