// Writing a file back. At every instant, whatever fails or loses power, the path names the old
// content or the new one, whole: the new text is complete and synced under a temporary name before
// anything happens to the path.
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <vex/inifile.h>
#include <vex/io.h>

#include "base/directory_of.h"
#include "base/eintr.h"
#include "base/errno_guard.h"
#include "base/unique_fd.h"
#include "config/ini_store.h"

namespace vex::config {
namespace {

constexpr mode_t kMode = 0640;

/// A line break inside a value would end its line, so it is written as two characters.
void appendValue(String &out, std::string_view value) {
    for (size_t at = 0;;) {
        const size_t stop = value.find_first_of("\r\n", at);
        out += value.substr(at, stop - at);
        if (stop == std::string_view::npos) return;
        out += value[stop] == '\n' ? "\\n" : "\\r";
        at = stop + 1;
    }
}

void appendSection(String &out, const File &file, const Section &section,
                   Vector<const Entry *> &chain) {
    for (const EntryId newest : section.order) {
        chain.clear();
        for (const Entry *entry = file.entry(newest); entry != nullptr; entry = file.older(*entry))
            if (!entry->deleted) chain.push_back(entry);
        for (size_t i = chain.size(); i-- > 0;) {
            out += chain[i]->comment.view();
            out += chain[i]->key.view();
            out += '=';
            appendValue(out, chain[i]->value.view());
            out += '\n';
        }
    }
}

String render(const File &file) {
    String out;
    Vector<const Entry *> chain;
    out += file.head_comment.view();
    for (const Section &section : file.sections) {
        if (section.deleted) continue;
        if (&section != &file.sections.front()) {
            out += section.comment.view();
            out += '[';
            out += section.name.view();
            out += "]\n";
        }
        appendSection(out, file, section, chain);
    }
    out += file.trailing_comment.view();
    return out;
}

/// Where a symbolic link at the path leads, whether or not something is there: the file is
/// replaced, not the link.
String followLinks(std::string_view path) {
    String current(path);
    char target[PATH_MAX];
    for (int hops = 0; hops < 40; ++hops) {
        const ssize_t n = ::readlink(current.c_str(), target, sizeof target);
        if (n < 0) break;
        const std::string_view text(target, static_cast<size_t>(n));
        if (text.front() == '/') {
            current = text;
        } else {
            current = String(directoryOf(current));
            current += '/';
            current += text;
        }
    }
    return current;
}

/// A file that is being written under a name of its own; the destructor removes it unless it was
/// published.
class TemporaryFile {
public:
    ~TemporaryFile() {
        const ErrnoGuard guard;
        if (!path_.empty()) (void)::unlink(path_.c_str());  // nothing better can be done with it
    }
    TemporaryFile() = default;
    TemporaryFile(const TemporaryFile &) = delete;
    TemporaryFile &operator=(const TemporaryFile &) = delete;

    /// Creates "<target>-<seconds>.sav"; where another save of this second holds the name, the next
    /// number is taken.
    bool create(const String &target) {
        const long now = ::time(nullptr);
        char suffix[32];
        for (int attempt = 0; attempt < 100; ++attempt) {
            (void)snprintf(suffix, sizeof suffix, "-%i.sav", static_cast<int>(now + attempt));
            String name = target + suffix;
            fd_.reset(retryOnEintr([&] {
                return ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kMode);
            }));
            if (fd_) {
                path_ = std::move(name);
                return true;
            }
            if (errno != EEXIST) return false;
        }
        return false;
    }

    /// Writes and syncs; 0, or -1 after one log line in the name of @p who.
    int fill(const char *who, const String &text, timespec &mtime) {
        // the umask may have taken bits from the mode that open was given
        if (::fchmod(fd_.get(), kMode) != 0)
            return VEX_FAIL_AS(who, errno, errno, -1, "failed to set permissions on %s",
                               path_.c_str());
        struct stat status {};
        if (!writeAll(fd_.get(), text.data(), text.size()) || safe_fsync(fd_.get()) != 0 ||
            ::fstat(fd_.get(), &status) != 0)
            return VEX_FAIL_AS(who, errno, errno, -1, "failed to save temporary file");
        if (fd_.close() != 0)
            return VEX_FAIL_AS("__doSave", errno, errno, -1, "failed to close file %s",
                               path_.c_str());
        mtime = status.st_mtim;
        return 0;
    }

    /// Puts the file in the place of @p target, whether or not something is there.
    bool replace(const String &target) {
        return published(::rename(path_.c_str(), target.c_str()) == 0);
    }

    /// Puts the file where nothing is yet; false with EEXIST where something is.
    bool publishNew(const String &target) {
        int result =
            ::renameat2(AT_FDCWD, path_.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE);
        if (result == 0) return published(true);
        // file systems that cannot rename so can still link; the destructor then removes the first
        // name
        if (errno != EINVAL && errno != ENOSYS) return false;
        return ::link(path_.c_str(), target.c_str()) == 0;
    }

private:
    bool published(bool done) {
        if (done) path_.clear();
        return done;
    }

    String path_;
    UniqueFd fd_;
};

/// Gives the old file its backup name. Where the file system refuses hard links the file is moved
/// there, and @p moved tells that the path stands empty until the new file is in place.
bool backUp(const String &target, const String &backup, bool &moved) {
    if (::unlink(backup.c_str()) != 0 && errno != ENOENT) return false;
    if (::link(target.c_str(), backup.c_str()) == 0) return true;
    if (errno != EPERM && errno != EOPNOTSUPP && errno != ENOSYS && errno != EMLINK) return false;
    moved = ::rename(target.c_str(), backup.c_str()) == 0;
    return moved;
}

int inifileSave(File &file) {
    if (file.read_error != 0)
        return VEX_FAIL(file.read_error, -1, "will not replace %s, which could not be read: %m",
                        file.path.c_str());
    struct stat status {};
    const bool exists = ::stat(file.path.c_str(), &status) == 0;
    if (!exists && errno != ENOENT)
        return VEX_FAIL(errno, -1, "cannot open file %s", file.path.c_str());
    if (file.path == kDefaultPath || (exists && !S_ISREG(status.st_mode)))
        return VEX_FAIL(EINVAL, -1, "cannot open file %s", file.path.c_str());

    const String text = render(file);
    const String target = followLinks(file.path), backup = target + ".bak",
                 directory(directoryOf(target));
    timespec mtime{};
    TemporaryFile temporary;
    if (!temporary.create(target)) return VEX_FAIL(errno, -1, "failed to open temporary file");
    if (temporary.fill(__func__, text, mtime) != 0) return -1;
    bool moved = false;
    if ((exists && !backUp(target, backup, moved)) || !temporary.replace(target)) {
        const int err = errno;
        if (moved) (void)::rename(backup.c_str(), target.c_str());  // the failure is reported below
        return VEX_FAIL(err, -1, "failed to rename file");
    }
    if (dirfsync(directory.c_str(), 0) != 0) return -1;
    file.modified = false;
    file.mtime = mtime;
    return 0;
}

/// Writes the file to a path where nothing may be yet.
int saveToNew(const char *who, File &file, const char *target) {
    if (file.read_error != 0)
        return VEX_FAIL_AS(who, file.read_error, file.read_error, -1, "cannot open file %s",
                           file.path.c_str());
    struct stat status {};
    if (::lstat(target, &status) == 0)
        return VEX_FAIL_AS(who, EEXIST, EEXIST, -1, "file already exists");

    const String text = render(file), path = target, directory(directoryOf(path));
    timespec mtime{};
    TemporaryFile temporary;
    if (!temporary.create(path))
        return VEX_FAIL_AS(who, errno, errno, -1, "cannot open file %s", target);
    if (temporary.fill(who, text, mtime) != 0) return -1;
    if (!temporary.publishNew(path)) {
        if (errno == EEXIST) return VEX_FAIL_AS(who, EEXIST, EEXIST, -1, "file already exists");
        return VEX_FAIL_AS(who, errno, errno, -1, "failed to rename file");
    }
    if (dirfsync(directory.c_str(), 0) != 0) return -1;
    if (file.path == path) {
        file.modified = false;
        file.mtime = mtime;
    }
    return 0;
}

}  // namespace
}  // namespace vex::config

using namespace vex::config;

int InifileSaveA(const char *path) {
    VEX_INI_REQUIRE(-1, path);
    return withStore(__func__, -1, [&] { return inifileSave(inifileAdd(path)); });
}

int InifileSaveAsA(const char *target, const char *path) {
    VEX_INI_REQUIRE(-1, target, path);
    return withStore(__func__, -1, [&] {
        File *file = findFile(path);
        if (file == nullptr)
            return VEX_FAIL_AS("InifileSaveAsA", ENOENT, ENOENT, -1, "cannot find key");
        return saveToNew("InifileSaveAsA", *file, target);
    });
}

int IniFileLoadAndSaveAsA(const char *target, const char *path) {
    VEX_INI_REQUIRE(-1, target, path);
    return withStore(__func__, -1,
                     [&] { return saveToNew("IniFileLoadAndSaveAsA", inifileAdd(path), target); });
}

int InifileSaveNewA(const char *path) {
    VEX_INI_REQUIRE(-1, path);
    return withStore(__func__, -1,
                     [&] { return saveToNew("InifileSaveNewA", inifileAdd(path), path); });
}

int InifileFlushAll() {
    return withStore(__func__, -1, [] {
        int err = 0;
        for (File *file = store.first; file != nullptr; file = file->next)
            if (file->modified && file->path != kDefaultPath && inifileSave(*file) != 0)
                err = errno;
        if (err == 0) return 0;
        errno = err;
        return -1;
    });
}
