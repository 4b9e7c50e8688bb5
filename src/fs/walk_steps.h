// A walk from its opening, entry by entry, to its end.
#ifndef VEX_FS_WALK_STEPS_H
#define VEX_FS_WALK_STEPS_H

#include <algorithm>
#include <utility>

#include "fs/walk_read.h"

namespace vex::fs {

inline constexpr uint32_t kOpenOptions = DDS_COMFOLLOW | DDS_LOGICAL | DDS_NOCHDIR | DDS_NOSTAT |
                                         DDS_PHYSICAL | DDS_SEEDOT | DDS_XDEV | DDS_WHITEOUT |
                                         DDS_RESERVED;
inline constexpr size_t kPathSize = 4096;

template <typename Text>
typename Walk<Text>::Stream *Walk<Text>::open(const char *who, const Char *path,
                                              const Settings &settings) {
    if (path == nullptr || path[0] == Char{})
        return VEX_FAIL_AS(who, ENOENT, ENOENT, nullptr, "invalid NULL parameter");
    if (Text::access(path) != 0)
        return errno == ENOENT ? nullptr
                               : VEX_FAIL_AS(who, errno, errno, nullptr, "cannot access path.");
    if ((settings.options & ~kOpenOptions) != 0)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, nullptr, "invalid options");
    void *const memory = malloc(sizeof(Walk));
    if (memory == nullptr)
        return VEX_FAIL_AS(who, ENOMEM, ENOMEM, nullptr, "could not allocate memory");
    auto *const walk = new (memory) Walk();
    walk->dds_rfd = -1;
    walk->dds_options = settings.options;
    if (walk->has(DDS_LOGICAL)) walk->dds_options |= DDS_NOCHDIR;
    walk->dds_delay_ms = settings.delay_ms;
    walk->dds_compar = settings.compar;
    walk->dds_filter = settings.filter;
    walk->dds_release = settings.release;
    if (walk->start(who, path)) return walk;
    const ErrnoGuard guard;
    walk->destroy();
    return nullptr;
}

/// Makes the entries that a walk begins with: the root, its nameless parent, and a nameless current
/// entry in front of the root, so that the first step is one to a sibling.
template <typename Text>
bool Walk<Text>::start(const char *who, const Char *path) {
    const View root(path);
    if (!grow(std::max(root.size(), kPathSize), std::max(root.size(), kPathSize), nullptr))
        return false;
    std::char_traits<Char>::copy(this->dds_path, path, root.size() + 1);
    const auto make_admitted = [&](Entry *parent, View name) {
        Entry *const entry = make(parent, name);
        if (entry != nullptr && admits(entry)) return parked_ = entry;
        if (entry != nullptr) discard(entry);
        return VEX_FAIL_AS(who, ENOMEM, ENOMEM, static_cast<Entry *>(nullptr),
                           "could not allocate memory");
    };
    Entry *const above = make_admitted(nullptr, View());
    Entry *const top = above != nullptr ? make_admitted(above, root) : nullptr;
    if (top == nullptr) return false;
    top->accpath = static_cast<Char *>(top->name);
    top->info = examine(top, false);
    Entry *const before = make_admitted(above, View());
    if (before == nullptr) return false;
    before->link = top;
    before->info = DDS_INIT;
    this->dds_cur = before;
    parked_ = nullptr;
    if (!moves()) return true;
    this->dds_rfd = ::open(".", O_RDONLY | O_CLOEXEC);
    if (this->dds_rfd < 0) this->dds_options |= DDS_NOCHDIR;
    return true;
}

template <typename Text>
void Walk<Text>::destroy() {
    discardList(this->dds_child);
    discardChain(this->dds_cur != nullptr ? this->dds_cur : parked_);
    while (spare_ != nullptr) free(std::exchange(spare_, spare_->next));
    free(this->dds_array);
    free(this->dds_path);
    free(this);
}

template <typename Text>
int Walk<Text>::close(const char *who, Stream *stream) {
    if (stream == nullptr) return VEX_FAIL_AS(who, EINVAL, EINVAL, 0, "invalid NULL parameter");
    const UniqueFd start(stream->dds_rfd);
    self(stream)->destroy();
    if (!start || ::fchdir(start.get()) == 0) return 0;
    return VEX_FAIL_AS(who, errno, errno, -1, "failed to change directories");
}

template <typename Text>
typename Walk<Text>::Entry *Walk<Text>::next(const char *who, Stream *stream) {
    if (stream == nullptr)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, nullptr, "invalid NULL parameter");
    return self(stream)->step(who);
}

template <typename Text>
typename Walk<Text>::Entry *Walk<Text>::step(const char *who) {
    Entry *const entry = this->dds_cur;
    if (entry == nullptr) return errno = stop_error_, nullptr;
    if (has(DDS_STOP)) return halt(who, "DDS_STOP 1, set dds_cur to NULL");
    const int instruction = std::exchange(entry->instr, DDS_NOINSTR);
    if (instruction == DDS_AGAIN) {
        entry->info = examine(entry, false);
        return entry;
    }
    if (instruction == DDS_FOLLOW && (entry->info == DDS_SL || entry->info == DDS_SLNONE)) {
        follow(entry);
        return entry;
    }
    // what could not be read was not entered either: its last visit is due
    if (entry->info == DDS_DNR) return entry->info = DDS_DP, entry;
    if (entry->info != DDS_D) return advance(who, entry);
    if (instruction == DDS_SKIP || (has(DDS_XDEV) && entry->dev != this->dds_dev)) {
        endFollowing(entry);
        discardList(std::exchange(this->dds_child, nullptr));
        entry->info = DDS_DP;
        return entry;
    }
    if (descend(entry)) return arrive(who, std::exchange(this->dds_child, nullptr));
    return has(DDS_STOP) ? halt(who, "DDS_STOP 2, set dds_cur to NULL") : entry;
}

/// Ends the walk. Its entries wait for DirCloseA.
template <typename Text>
typename Walk<Text>::Entry *Walk<Text>::halt(const char *who, const char *why) {
    parked_ = std::exchange(this->dds_cur, nullptr);
    return VEX_FAIL_AS(who, -1, stop_error_, nullptr, "%s", why);
}

/// Goes into a directory and leaves its children in dds_child; false when there are none.
template <typename Text>
bool Walk<Text>::descend(Entry *directory) {
    if (this->dds_child != nullptr && has(DDS_NAMEONLY)) {
        this->dds_options &= ~static_cast<uint32_t>(DDS_NAMEONLY);
        discardList(std::exchange(this->dds_child, nullptr));
    }
    if (this->dds_child == nullptr) {
        this->dds_child = read(Mode::kWalk);
    } else if (moves() && !enter(directory, openDirectory(directory, O_PATH).get())) {
        directory->errno_value = errno;
        for (Entry *child = this->dds_child; child != nullptr; child = child->link)
            child->accpath = directory->accpath;
    }
    return this->dds_child != nullptr;
}

/// Makes an entry the current one, or what comes after it when it is to be left out.
template <typename Text>
typename Walk<Text>::Entry *Walk<Text>::arrive(const char *who, Entry *entry) {
    this->dds_cur = entry;
    if (entry->instr == DDS_SKIP) return advance(who, entry);
    load(entry);
    if (entry->instr == DDS_FOLLOW) {
        entry->instr = DDS_NOINSTR;
        follow(entry);
    }
    return entry;
}

template <typename Text>
typename Walk<Text>::Entry *Walk<Text>::advance(const char *who, Entry *done) {
    for (;;) {
        // asked for, and then the directory was not one any more
        discardList(std::exchange(this->dds_child, nullptr));
        Entry *const entry = done->link;
        if (entry == nullptr) return ascend(who, done);
        this->dds_cur = entry;
        discard(done);
        if (entry->level == 0 && moves() && ::fchdir(this->dds_rfd) != 0) {
            stop_error_ = errno;
            this->dds_options |= DDS_STOP;
            parked_ = std::exchange(this->dds_cur, nullptr);
            return VEX_FAIL_AS(who, -1, stop_error_, nullptr,
                               "FCHDIR failed, errno=%d, set dds_cur to NULL", stop_error_);
        }
        if (entry->instr != DDS_SKIP) return arrive(who, entry);
        done = entry;
    }
}

/// From the last of its children back to a directory.
template <typename Text>
typename Walk<Text>::Entry *Walk<Text>::ascend(const char *who, Entry *last) {
    Entry *const directory = last->parent;
    this->dds_cur = directory;
    discard(last);
    if (directory->level < 0) {
        this->dds_cur = nullptr;
        discard(directory);
        errno = 0;
        return nullptr;
    }
    this->dds_path[directory->pathlen] = Char{};
    if (const char *const call = back(directory); call != nullptr) {
        stop_error_ = errno;
        this->dds_options |= DDS_STOP;
        parked_ = std::exchange(this->dds_cur, nullptr);
        // the pointer was cleared before: readers of the log know the line with "(nil)"
        return VEX_FAIL_AS(who, -1, stop_error_, nullptr, "%s failed, errno=%d, dds_cur=%p.", call,
                           stop_error_, static_cast<void *>(this->dds_cur));
    }
    endFollowing(directory);
    directory->info = directory->errno_value != 0 ? DDS_ERR : DDS_DP;
    directory->instr = DDS_NOINSTR;
    return directory;
}

/// Follows a symbolic link. The way back from a directory that it leads to is kept open.
template <typename Text>
void Walk<Text>::follow(Entry *entry) {
    endFollowing(entry);
    entry->info = examine(entry, true);
    if (entry->info != DDS_D || !moves()) return;
    entry->symfd = ::open(".", O_RDONLY | O_CLOEXEC);
    if (entry->symfd >= 0) {
        entry->flags |= DDS_SYMFOLLOW;
    } else {
        entry->info = DDS_ERR;
        entry->errno_value = errno;
    }
}

/// Writes the entry's path into the buffer. The root's takes its place as a whole, and its name is
/// cut to the last part.
template <typename Text>
void Walk<Text>::load(Entry *entry) {
    using Traits = std::char_traits<Char>;
    auto *const name = static_cast<Char *>(entry->name);
    if (entry->level > 0) {
        const size_t offset = nameOffset(entry->parent);
        this->dds_path[offset - 1] = '/';
        Traits::copy(this->dds_path + offset, name, static_cast<size_t>(entry->namelen) + 1);
        return;
    }
    const View path(name, static_cast<size_t>(entry->namelen));
    entry->accpath = this->dds_path;
    Traits::copy(this->dds_path, name, path.size() + 1);
    const size_t slash = path.rfind(Char{'/'});
    if (slash != View::npos && path.size() > 1) {
        entry->namelen = static_cast<int32_t>(path.size() - slash - 1);
        Traits::move(name, name + slash + 1, static_cast<size_t>(entry->namelen) + 1);
    }
    this->dds_dev = entry->dev;
}

template <typename Text>
typename Walk<Text>::Entry *Walk<Text>::children(const char *who, Stream *stream,
                                                 uint32_t options) {
    if (stream == nullptr)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, nullptr, "invalid NULL parameter");
    if (options != 0 && options != DDS_NAMEONLY)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, nullptr, "no valid flag settings");
    Walk &walk = *self(stream);
    Entry *const directory = stream->dds_cur;
    errno = 0;
    if (walk.has(DDS_STOP) || directory == nullptr) return nullptr;
    if (directory->info == DDS_INIT) return directory->link;
    if (directory->info != DDS_D) return nullptr;
    walk.discardList(std::exchange(stream->dds_child, nullptr));
    stream->dds_options = (stream->dds_options & ~static_cast<uint32_t>(DDS_NAMEONLY)) | options;
    const Mode mode = options != 0 ? Mode::kNames : Mode::kChildren;
    const bool is_slash = stream->dds_path[0] == '/' && stream->dds_path[1] == Char{};
    if (directory->level != 0 || is_slash || !walk.moves())
        return stream->dds_child = walk.read(mode);
    const UniqueFd here(::open(".", O_RDONLY | O_CLOEXEC));
    if (!here) return nullptr;
    stream->dds_child = walk.read(mode);
    if (::fchdir(here.get()) != 0) {
        const ErrnoGuard guard;
        walk.discardList(std::exchange(stream->dds_child, nullptr));
    }
    return stream->dds_child;
}

template <typename Text>
int Walk<Text>::instruct(const char *who, Entry *entry, unsigned instruction) {
    if (entry == nullptr) return VEX_FAIL_AS(who, EINVAL, EINVAL, 0, "invalid NULL parameter");
    if (instruction > DDS_SKIP)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, 0, "no valid flag settings");
    entry->instr = static_cast<uint16_t>(instruction);
    return 1;
}

template <typename Text>
int Walk<Text>::errorOf(const char *who, const Entry *entry) {
    if (entry == nullptr) return VEX_FAIL_AS(who, EINVAL, EINVAL, -1, "invalid NULL parameter");
    return entry->errno_value;
}

template <typename Text>
const char *Walk<Text>::errorText(const char *who, const Entry *entry) {
    if (entry == nullptr)
        return VEX_FAIL_AS(who, EINVAL, EINVAL, nullptr, "invalid NULL parameter");
    static thread_local char unknown[64];
    return strerror_r(entry->errno_value, unknown, sizeof unknown);
}

}  // namespace vex::fs

#endif
