// "vault restore": makes the tree of a snapshot, file by file.
#include "commands.h"
#include "containers.h"
#include "snapshot.h"

namespace vault {
namespace {

class Restore {
public:
    Restore(Vault *vault, const std::string &target)
        : catalogue_(&vault->catalogue), target_(target), containers_(catalogue_) {}

    void run(const std::string &uid) {
        index_.load(catalogue_);
        const std::string partial = target_ + ".partial";
        check(rmdir(target_.c_str()) == 0 || errno == ENOENT, "%s is there already: %m",
              target_.c_str());
        // from inside paths are as long as they were, whatever the target's
        check(mkdir(partial.c_str(), 0700) == 0 && chdir(partial.c_str()) == 0,
              "%s cannot be made: %m", partial.c_str());
        const bool complete = succeeds([&] {
            SnapshotReader reader(catalogue_, uid);
            for (Entry entry; reader.next(&entry);) make(entry, &reader);
        });
        leaveDirectories("");
        check(complete && lost_ == 0, "%s holds what could be restored", partial.c_str());
        done(rename_dirfsync(partial.c_str(), target_.c_str(), parentOf(target_).c_str(), 0) == 0);
        printf("restored %llu files, %s, to %s; %.1f MB/s\n", static_cast<U64>(progress_.files),
               sizeText(progress_.bytes).c_str(), target_.c_str(), progress_.megabytesPerSecond());
        check(unlike_ == 0, "%llu files are not as they were; the log names them",
              static_cast<U64>(unlike_));
    }

private:
    void make(const Entry &entry, SnapshotReader *reader) {
        const char *const path = entry.path.c_str();
        progress_.add(1, 0);
        leaveDirectories(entry.path);
        // the directories above a source are not part of the snapshot
        std::error_code shows_below;
        if (directories_.empty())
            std::filesystem::create_directories(parentOf(entry.path), shows_below);
        if (entry.hard_link) return expect(link(entry.link.c_str(), path) == 0, path);
        if (entry.is(S_IFDIR)) {
            expect(CreateDirA(path, 0700) == 0, path);
            directories_.push_back(entry);
            return;
        }
        if (entry.is(S_IFREG)) return content(entry, reader);
        const mode_t type = entry.status.st_mode & S_IFMT;
        const bool made = type == S_IFLNK ? symlink(entry.link.c_str(), path) == 0
                                          : mknod(path, type | 0600, entry.status.st_rdev) == 0;
        made ? setAttributes(entry) : expect(false, path);
    }

    /// Goes on without what the system, or the rights of the user, do not allow.
    void expect(bool good, const char *path) {
        if (good) return;
        WarningA(-1, "%s cannot be made as it was: %m", path);
        ++unlike_;
    }

    void content(const Entry &entry, SnapshotReader *reader) {
        const char *const path = entry.path.c_str();
        Fd file(open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        lost_ += file.fd < 0;
        if (file.fd < 0) return WarningA(-1, "%s cannot be made: %m", path);
        off_t offset = 0;
        for (ChunkRef chunk; reader->nextChunk(&chunk); offset += chunk.size) {
            ChunkRecord stored;
            const unsigned char *data = nullptr;
            if (succeeds([&] {
                    check(index_.find(chunk.digest, &stored), "a chunk is not in the index");
                    data = containers_.get(stored);
                })) {
                check(safe_pwrite(file.fd, data, stored.size, offset) == stored.size,
                      "%s cannot be written: %m", path);
            } else {
                ErrorA(-1, "%s: %u bytes at %lld are lost", path, chunk.size,
                       static_cast<long long>(offset));
                ++lost_;
            }
            progress_.add(0, chunk.size);
        }
        if (offset != entry.status.st_size)
            WarningA(-1, "%s was stored with %lld bytes instead of %lld", path,
                     static_cast<long long>(offset), static_cast<long long>(entry.status.st_size));
        // some file systems say only now that the disk is full
        check(close(std::exchange(file.fd, -1)) == 0, "%s cannot be written: %m", path);
        setAttributes(entry);
    }

    /// A directory is done, and gets its times, once an entry lies elsewhere.
    void leaveDirectories(const std::string &next) {
        for (; !directories_.empty() && !next.starts_with(directories_.back().path + "/");
             directories_.pop_back())
            setAttributes(directories_.back());
    }

    void setAttributes(const Entry &entry) {
        const char *const path = entry.path.c_str();
        const struct stat &was = entry.status;
        const timespec times[] = {was.st_mtim, was.st_mtim};
        const bool owned = lchown(path, was.st_uid, was.st_gid) == 0;
        const mode_t bits = owned ? 07777 : 01777;  // no set-user-ID of others
        expect((owned || VexIsRoot() == 0) &&
                   (entry.is(S_IFLNK) || chmod(path, was.st_mode & bits) == 0) &&
                   utimensat(AT_FDCWD, path, times, AT_SYMLINK_NOFOLLOW) == 0,
               path);
    }

    Catalogue *catalogue_;
    std::string target_;
    ChunkIndex index_;
    ContainerReader containers_;
    std::vector<Entry> directories_;  ///< those that the entry lies in
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
    Restore(vault, Settings::absolute(arguments[1]))
        .run(findSnapshot(&vault->catalogue, arguments[0]));
}

}  // namespace vault
