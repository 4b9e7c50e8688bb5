// "vault restore": makes the tree of a snapshot, fills its files container by container, so that
// each container is opened once, and sets owners, modes and times last.
#include <fcntl.h>

#include <cerrno>

#include "commands.h"

namespace vault {
namespace {

constexpr size_t kPlaceKey = 12;  // container and offset

class Restore {
public:
    Restore(Vault *vault, const std::string &target)
        : vault_(vault), target_(target), partial_(target + ".partial") {}

    void run(const std::string &uid) {
        index_.load(&vault_->catalogue);
        check(rmdir(target_.c_str()) == 0 || errno == ENOENT, "%s is there already: %m",
              target_.c_str());
        // from inside paths are as long as they were, whatever the target's
        check(mkdir(partial_.c_str(), 0700) == 0 && chdir(partial_.c_str()) == 0,
              "%s cannot be made: %m", partial_.c_str());
        plan_ = std::make_unique<RecordSorter>(partial_, kPlaceKey);
        bool complete = true;
        const auto step = [&complete](auto work) { complete = succeeds(work) && complete; };
        step(
            [&] { forEachEntry(uid, [this](auto &entry, auto *reader) { make(entry, reader); }); });
        step([&] { fill(); });
        step([&] { forEachEntry(uid, [this](auto &entry, auto *) { setAttributes(entry); }); });
        leaveDirectories("");
        check(complete && lost_ == 0, "%s holds what could be restored", partial_.c_str());
        done(rename_dirfsync(partial_.c_str(), target_.c_str(), parentOf(target_).c_str(), 0) == 0);
        printf("restored %llu files, %s, to %s; %.1f MB/s\n", static_cast<U64>(progress_.files()),
               sizeText(progress_.bytes()).c_str(), target_.c_str(),
               progress_.megabytesPerSecond());
        check(unlike_ == 0, "%llu files are not as they were; the log names them",
              static_cast<U64>(unlike_));
    }

private:
    template <typename Visit>
    void forEachEntry(const std::string &uid, Visit visit) {
        SnapshotReader reader(&vault_->catalogue, uid);
        for (Entry entry; reader.next(&entry);) visit(entry, &reader);
    }

    void make(const Entry &entry, SnapshotReader *reader) {
        const std::string &path = entry.path;
        progress_.add(1, 0);
        // the directories above a source are not part of the snapshot
        const std::string parent = parentOf(path);
        std::error_code shows_below;
        if (parent != parent_) std::filesystem::create_directories(parent, shows_below);
        parent_ = parent;
        if (entry.type == 'd') {
            expect(CreateDirA(path.c_str(), 0700) == 0, path);
        } else if (entry.type == 'l') {
            expect(symlink(entry.link.c_str(), path.c_str()) == 0, path);
        } else if (entry.type == 'f') {
            if (planContent(entry, reader) == 0) expect(openFile(path), path);
        } else if (entry.type != 'h') {
            const mode_t mode = (entry.status.st_mode & S_IFMT) | 0600;
            expect(mknod(path.c_str(), mode, entry.status.st_rdev) == 0, path);
        }
    }

    /// Goes on without what the system, or the rights of the user, do not allow.
    void expect(bool good, const std::string &path) {
        if (good) return;
        WarningA(-1, "%s cannot be made as it was: %m", path.c_str());
        ++unlike_;
    }

    /// Notes where each piece of a file comes from; returns its size.
    uint64_t planContent(const Entry &entry, SnapshotReader *reader) {
        uint64_t offset = 0;
        for (ChunkRef chunk; reader->nextChunk(&chunk); offset += chunk.size) {
            ChunkRecord known;
            if (!index_.find(chunk.digest, &known)) {
                ErrorA(-1, "%s: a chunk of it is lost", entry.path.c_str());
                ++lost_;
                continue;
            }
            Bytes record;
            put64(&record, known.container);
            put32(&record, known.offset);
            putChunk(&record, known);
            put64(&record, offset);
            putText(&record, entry.path);
            plan_->add(record);
            containers_.insert(known.container);
        }
        if (offset != static_cast<uint64_t>(entry.status.st_size))
            WarningA(-1, "%s was stored with %llu bytes instead of %llu", entry.path.c_str(),
                     static_cast<U64>(offset), static_cast<U64>(entry.status.st_size));
        return offset;
    }

    void fill() {
        plan_->sort();
        ContainerReader containers(&vault_->catalogue, std::move(containers_));
        for (Bytes record; plan_->next(&record);) {
            Cursor cursor(record);
            cursor.take(kPlaceKey);
            const ChunkRecord chunk = takeChunk(&cursor);
            const auto offset = static_cast<off_t>(cursor.take64());
            const std::string path = cursor.takeText();
            const unsigned char *data = nullptr;
            if (openFile(path) && succeeds([&] { data = containers.get(chunk); })) {
                check(safe_pwrite(file_->fd, data, chunk.size, offset) == chunk.size,
                      "%s cannot be written: %m", path.c_str());
            } else {
                ErrorA(-1, "%s: %u bytes at %lld are lost", path.c_str(), chunk.size,
                       static_cast<long long>(offset));
                ++lost_;
            }
            progress_.add(0, chunk.size);
        }
        file_.reset();
    }

    /// Keeps the file open: what comes next most often belongs to it as well.
    bool openFile(const std::string &path) {
        if (file_ == nullptr || path != file_path_) {
            file_ = std::make_unique<Fd>(
                open(path.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
            if (file_->fd < 0) WarningA(-1, "%s cannot be made: %m", path.c_str());
            file_path_ = path;
        }
        return file_->fd >= 0;
    }

    void setAttributes(const Entry &entry) {
        leaveDirectories(entry.path);
        if (entry.type == 'd') {
            directories_.push_back(entry);
        } else if (entry.type == 'h') {
            expect(link(entry.link.c_str(), entry.path.c_str()) == 0, entry.path);
        } else {
            apply(entry);
        }
    }

    /// A directory is done once an entry lies elsewhere.
    void leaveDirectories(const std::string &next) {
        for (; !directories_.empty() && !next.starts_with(directories_.back().path + "/");
             directories_.pop_back())
            apply(directories_.back());
    }

    void apply(const Entry &entry) {
        const char *const path = entry.path.c_str();
        const struct stat &was = entry.status;
        const timespec times[] = {was.st_mtim, was.st_mtim};
        const bool owned = lchown(path, was.st_uid, was.st_gid) == 0;
        const mode_t bits = owned ? 07777 : 01777;  // no set-user-ID of others
        expect((owned || VexIsRoot() == 0) &&
                   (entry.type == 'l' || chmod(path, was.st_mode & bits) == 0) &&
                   utimensat(AT_FDCWD, path, times, AT_SYMLINK_NOFOLLOW) == 0,
               entry.path);
    }

    Vault *vault_;
    std::string target_, partial_, parent_;  ///< parent: the directory of the last entry
    ChunkIndex index_;
    std::unique_ptr<RecordSorter>
        plan_;  ///< which chunk goes where, in the order of the containers
    std::set<uint64_t> containers_;
    std::vector<Entry> directories_;  ///< those that the entry lies in, whose times come last
    std::string file_path_;
    std::unique_ptr<Fd> file_;
    Progress progress_{"restored"};
    uint64_t lost_ = 0, unlike_ = 0;
};

/// The one snapshot that a name means: "latest", a UID or the beginning of one.
std::string findSnapshot(Catalogue *catalogue, const std::string &name) {
    const std::vector<Snapshot> snapshots = listSnapshots(catalogue);
    if (name == "latest" && !snapshots.empty()) return snapshots.back().uid;
    std::vector<std::string> found;
    for (const Snapshot &snapshot : snapshots)
        if (snapshot.uid.starts_with(name)) found.push_back(snapshot.uid);
    check(!found.empty(), "there is no snapshot %s; see \"vault list\"", name.c_str());
    check(found.size() == 1, "several snapshots begin with %s", name.c_str());
    return found[0];
}

}  // namespace

void restore(Vault *vault) {
    const std::vector<std::string> &arguments = vault->settings.arguments;
    char target[PATH_MAX];
    check(vex_path_resolve(arguments[1].c_str(), target, sizeof target) >= 0, "%s: %m",
          arguments[1].c_str());
    Restore(vault, target).run(findSnapshot(&vault->catalogue, arguments[0]));
}

}  // namespace vault
