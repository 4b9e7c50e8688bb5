// "vault backup": walks the sources, takes what did not change from the snapshot before, cuts the
// rest into chunks, and stores those that the vault has not.
#include "chunker.h"
#include "commands.h"
#include "containers.h"
#include "snapshot.h"

namespace vault {
namespace {

constexpr size_t kReadAhead = size_t{1} << 20;
/// A file changed this shortly before a backup may have changed again with the same time stamp.
constexpr time_t kClockSlack = 2;

bool same(const timespec &a, const timespec &b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

/// The newest snapshot, read beside the walk, which comes in the same order.
class Previous {
public:
    Previous(Catalogue *catalogue, const Snapshot &snapshot)
        : reader_(catalogue, snapshot.uid), time_(static_cast<time_t>(snapshot.time)) {}

    /// Whether a file is there as it is now; its chunks can be read then.
    bool has(const Entry &now) {
        while (more_ && comparePaths(entry_.path, now.path) < 0) more_ = reader_.next(&entry_);
        const struct stat &was = entry_.status, &is = now.status;
        return more_ && entry_.path == now.path && !entry_.hard_link && was.st_size == is.st_size &&
               was.st_ino == is.st_ino && same(was.st_mtim, is.st_mtim) &&
               same(was.st_ctim, is.st_ctim) && is.st_ctim.tv_sec + kClockSlack < time_;
    }
    bool nextChunk(ChunkRef *chunk) { return reader_.nextChunk(chunk); }

private:
    SnapshotReader reader_;
    Entry entry_;
    time_t time_;
    bool more_ = true;
};

class Backup {
public:
    Backup(Vault *vault, const Snapshot &snapshot)
        : settings_(vault->settings),
          catalogue_(&vault->catalogue),
          chunker_(settings_.chunk_size),
          chunks_(catalogue_, &index_),
          list_(catalogue_, snapshot.uid),
          buffer_(std::max(kReadAhead, 2 * chunker_.most())),
          snapshot_(snapshot) {}

    void run(const std::vector<std::string> &sources) {
        check(vex_stat(settings_.directory.c_str(), &own_) == 0, "%s cannot be looked at: %m",
              settings_.directory.c_str());
        const bool complete = catalogue_->sound(kContainers, true);  // they are not stored again
        index_.load(catalogue_);
        const std::vector<Snapshot> before = listSnapshots(catalogue_);
        if (!before.empty() && catalogue_->sound(kSnapshots + before.back().uid))
            previous_ = std::make_unique<Previous>(catalogue_, before.back());
        for (const std::string &root : sources) {
            snapshot_.sources += (snapshot_.sources.empty() ? "" : " ") + root;
            source(root);
        }
        chunks_.finish();
        index_.write(catalogue_, [this](ChunkRecord *chunk) { return chunks_.wrote(*chunk); });
        list_.finish();
        snapshot_.files = progress_.files;
        snapshot_.bytes = progress_.bytes;
        snapshot_.stored = chunks_.storedBytes();
        snapshot_.add(catalogue_);
        catalogue_->commit();
        printf("snapshot %s: %llu files, %s; new %s, stored as %s; %.1f MB/s\n",
               snapshot_.uid.c_str(), static_cast<U64>(snapshot_.files),
               sizeText(snapshot_.bytes).c_str(), sizeText(chunks_.newBytes()).c_str(),
               sizeText(snapshot_.stored).c_str(), progress_.megabytesPerSecond());
        check(complete, "%s has lost data that this backup may need: see above, and verify it",
              settings_.directory.c_str());
        check(skipped_ == 0, "%llu files are not in the backup; the log names them",
              static_cast<U64>(skipped_));
    }

private:
    void source(const std::string &root) {
        const auto by_name = [](const DirEntry **a, const DirEntry **b) {
            return strcmp((*a)->name, (*b)->name);
        };
        const uint32_t options = DDS_PHYSICAL | (settings_.one_file_system ? DDS_XDEV : 0);
        const std::unique_ptr<DirStream, decltype(&DirCloseA)> walk(
            DirOpenA(root.c_str(), options, by_name, 0), &DirCloseA);
        check(walk != nullptr, "%s cannot be backed up: %m", root.c_str());
        while (DirEntry *found = DirGetNextA(walk.get())) {
            if (found->info == DDS_D && found->statp->st_dev == own_.st_dev &&
                found->statp->st_ino == own_.st_ino) {
                DirSetFlagsA(found, DDS_SKIP);
            } else if (found->info != DDS_DP) {
                add(*found);
            }
        }
        check(errno == 0, "%s cannot be walked to its end: %m", root.c_str());
    }

    void add(const DirEntry &found) {
        Entry entry;
        entry.path.assign(found.path + 1, static_cast<size_t>(found.pathlen - 1));
        if (found.info == DDS_DNR || found.info == DDS_ERR || found.info == DDS_NS)
            return skip(entry.path, DirGetStrerrorA(&found));
        if (entry.path.size() >= PATH_MAX) return skip(entry.path, "its path is too long");
        entry.status = *found.statp;
        if (entry.is(S_IFSOCK)) return;  // made anew by the program that listens on it
        progress_.add(1, 0);
        std::string *first = nullptr;
        if (!entry.is(S_IFDIR) && entry.status.st_nlink > 1)
            first = &linked_[{entry.status.st_dev, entry.status.st_ino}];
        entry.hard_link = first != nullptr && !first->empty();
        if (entry.hard_link) {
            entry.link = *first;
        } else if (entry.is(S_IFLNK)) {
            std::error_code error;
            entry.link = std::filesystem::read_symlink(found.accpath, error);
            if (error) return skip(entry.path, strerrordesc_np(error.value()));
        }
        if (entry.is(S_IFREG) && !entry.hard_link) {
            if (!addFile(entry, found.accpath)) return;
        } else if (!entry.path.empty()) {
            list_.entry(entry);
        }
        if (first != nullptr && first->empty()) *first = entry.path;
    }

    void skip(const std::string &path, const char *why) {
        WarningA(-1, "%s is not in the backup: %s", path.c_str(), why);
        ++skipped_;
    }

    /// False when the file cannot be opened.
    bool addFile(const Entry &entry, const char *path) {
        const bool known = previous_ != nullptr && previous_->has(entry);
        const auto expected = static_cast<uint64_t>(entry.status.st_size);
        uint64_t size = known ? reuse(entry) : 0;
        if (known && size >= expected) return true;
        // what a read error kept out of the snapshot before is tried again from there
        constexpr int kFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
        Fd file(open(path, kFlags | O_NOATIME));
        if (file.fd < 0 && errno == EPERM) file.fd = open(path, kFlags);  // not the owner
        struct stat status {};
        if (file.fd < 0 || fstat(file.fd, &status) != 0)
            return skip(entry.path, strerrordesc_np(errno)), known;
        if (!S_ISREG(status.st_mode)) return skip(entry.path, "it is no file any more"), known;
        if (!known) list_.entry(entry);
        if (size != 0 && lseek(file.fd, static_cast<off_t>(size), SEEK_SET) < 0)
            return skip(entry.path, strerrordesc_np(errno)), known;
        size += store(file.fd, entry.path);
        if (size != expected)
            WarningA(-1, "%s is stored with %llu bytes instead of %llu", entry.path.c_str(),
                     static_cast<U64>(size), static_cast<U64>(expected));
        return true;
    }

    /// Takes what the snapshot before has of a file; returns how much that is.
    uint64_t reuse(const Entry &entry) {
        list_.entry(entry);
        uint64_t size = 0;
        ChunkRecord stored;
        for (ChunkRef chunk; previous_->nextChunk(&chunk); size += chunk.size) {
            check(index_.find(chunk.digest, &stored), "%s: a chunk of it is lost",
                  entry.path.c_str());
            list_.chunk(chunk);
            progress_.add(0, chunk.size);
        }
        return size;
    }

    /// Stores the rest of a file, chunk by chunk; returns its size.
    uint64_t store(int fd, const std::string &path) {
        size_t begin = 0, end = 0;
        uint64_t size = 0;
        for (bool ended = false;;) {
            if (!ended && end - begin < chunker_.most()) {
                memmove(buffer_.data(), buffer_.data() + begin, end - begin);
                end -= std::exchange(begin, 0);
                const auto room = static_cast<ssize_t>(buffer_.size() - end);
                const ssize_t got = safe_read(fd, buffer_.data() + end, room);
                if (got < 0) return skip(path, strerrordesc_np(errno)), size;
                ended = got < room;
                end += static_cast<size_t>(got);
            }
            if (begin == end) return size;
            const size_t length = chunker_.cut(&buffer_[begin], end - begin);
            list_.chunk({chunks_.put(&buffer_[begin], length), static_cast<uint32_t>(length)});
            begin += length;
            size += length;
            progress_.add(0, length);
        }
    }

    const Settings &settings_;
    Catalogue *catalogue_;
    ChunkIndex index_;
    Chunker chunker_;
    ChunkWriter chunks_;
    SnapshotWriter list_;
    std::unique_ptr<Previous> previous_;
    std::map<std::pair<uint64_t, uint64_t>, std::string> linked_;  ///< files of several names
    Bytes buffer_;
    Progress progress_{"backed up"};
    struct stat own_ {};  ///< the vault, which no backup holds
    Snapshot snapshot_;
    uint64_t skipped_ = 0;
};

/// The sources in the order of the snapshot, without those that lie below another.
std::vector<std::string> orderSources(const std::vector<std::string> &arguments) {
    std::vector<std::string> sources;
    for (const std::string &argument : arguments) {
        sources.push_back(Settings::absolute(argument));
        check(vex_access(sources.back().c_str(), F_OK) == 0, "%s cannot be backed up: %m",
              argument.c_str());
    }
    std::sort(sources.begin(), sources.end(),
              [](const auto &a, const auto &b) { return comparePaths(a, b) < 0; });
    const auto covers = [](const auto &outer, const auto &inner) {
        return vex_path_is_below(inner.c_str(), outer.c_str()) == 1;
    };
    sources.erase(std::unique(sources.begin(), sources.end(), covers), sources.end());
    return sources;
}

}  // namespace

void backup(Vault *vault) {
    const std::vector<std::string> sources = orderSources(vault->settings.arguments);
    VexUID id;
    char uid[33];
    done(VexUIDGenerate(&id, 1) != nullptr && VexUIDSerialize(uid, sizeof uid, &id, false) != 0);
    vault->catalogue.beginChange();
    Snapshot snapshot;
    snapshot.uid = uid;
    snapshot.generation = vault->catalogue.generation();
    snapshot.time = static_cast<uint64_t>(time(nullptr));
    Backup(vault, snapshot).run(sources);
}

}  // namespace vault
