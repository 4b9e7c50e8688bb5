// Entries of a walk: making, looking at and freeing one.
#ifndef VEX_FS_WALK_ENTRY_H
#define VEX_FS_WALK_ENTRY_H

#include <malloc.h>

#include <cstdlib>
#include <new>

#include <vex/log.h>

#include "base/errno_guard.h"
#include "base/sleep.h"
#include "fs/walk.h"
#include "log/report.h"

namespace vex::fs {

template <typename Text>
size_t Walk<Text>::nameOffset(const Entry *parent) const {
    const bool slash = parent->level == 0 && parent->pathlen == 1 && this->dds_path[0] == '/';
    return static_cast<size_t>(parent->pathlen) + (slash ? 0 : 1);
}

inline constexpr size_t kSpares = 1024;

/// Directories are read as a whole and freed entry by entry, so malloc would merge and split the
/// same memory over and over. Blocks go round instead, half a megabyte at most.
template <typename Text>
void *Walk<Text>::allocate(size_t size) {
    Spare *const spare = spare_;
    if (spare == nullptr || malloc_usable_size(spare) < size) return malloc(size);
    spare_ = spare->next;
    --spare_count_;
    return spare;
}

template <typename Text>
void Walk<Text>::recycle(void *block) {
    if (spare_count_ == kSpares) return free(block);
    spare_ = new (block) Spare{spare_};
    ++spare_count_;
}

/// One block: the record, the name, and behind it, at the next multiple of 16, the status. The
/// sizes leave room for that wherever malloc's block begins.
template <typename Text>
typename Walk<Text>::Entry *Walk<Text>::make(Entry *parent, View name) {
    static_assert(offsetof(Entry, name) == 120 && sizeof(struct stat) == 144);
    const size_t bytes = name.size() * sizeof(Char);
    auto *const block = static_cast<char *>(allocate(bytes + (has(DDS_NOSTAT) ? 136 : 295)));
    if (block == nullptr)
        return VEX_FAIL_AS("dirAlloc", ENOMEM, ENOMEM, nullptr, "could not allocate memory");
    auto *const entry = new (block) Entry{};
    auto *const text = reinterpret_cast<Char *>(block + offsetof(Entry, name));
    name.copy(text, name.size());
    text[name.size()] = Char{};
    entry->parent = parent;
    entry->path = this->dds_path;
    entry->symfd = -1;
    entry->instr = DDS_NOINSTR;
    entry->namelen = static_cast<int32_t>(name.size());
    entry->level = static_cast<int16_t>(parent == nullptr ? -1 : parent->level + 1);
    entry->pathlen = entry->namelen;
    if (entry->level > 0) entry->pathlen += static_cast<int32_t>(nameOffset(parent));
    const auto base = reinterpret_cast<uintptr_t>(block);
    const size_t status = ((base + bytes + 147) & ~size_t{15}) - base;
    entry->statp = has(DDS_NOSTAT) ? &scratch_ : reinterpret_cast<struct stat *>(block + status);
    return entry;
}

template <typename Text>
bool Walk<Text>::admits(Entry *entry) const {
    return this->dds_filter == nullptr || this->dds_filter(entry, this->dds_path);
}

template <typename Text>
void Walk<Text>::discard(Entry *entry) {
    const ErrnoGuard guard;
    endFollowing(entry);
    if (entry->user_data != nullptr && this->dds_release != nullptr) this->dds_release(entry);
    recycle(entry);
}

template <typename Text>
void Walk<Text>::discardList(Entry *first) {
    while (first != nullptr) {
        Entry *const next = first->link;
        discard(first);
        first = next;
    }
}

/// Frees an entry, its later siblings, and so on upward to the root's parent.
template <typename Text>
void Walk<Text>::discardChain(Entry *from) {
    while (from != nullptr) {
        Entry *const next = from->link != nullptr ? from->link : from->parent;
        discard(from);
        from = next;
    }
}

/// A name in a directory that is open anyway is looked up there, which spares the system the way
/// along the path. What could not be reached by path must fail here too.
template <typename Text>
int Walk<Text>::lookUp(const Entry *entry, bool follow, const Place *place, struct stat *out) {
    if (place == nullptr)
        return follow ? Text::stat(entry->accpath, out) : Text::lstat(entry->accpath, out);
    if (!place->too_long)
        return ::fstatat(place->directory, place->name, out, follow ? 0 : AT_SYMLINK_NOFOLLOW);
    errno = ENAMETOOLONG;
    return -1;
}

/// Looks up an entry's status and tells its kind.
template <typename Text>
uint16_t Walk<Text>::examine(Entry *entry, bool follow, const Place *place) {
    if (this->dds_delay_ms != 0) sleepMs(this->dds_delay_ms);
    follow = follow || has(DDS_LOGICAL) || (entry->level == 0 && has(DDS_COMFOLLOW));
    entry->cycle = nullptr;
    if (lookUp(entry, follow, place, entry->statp) == 0) return classify(entry);
    const int err = errno;
    if (follow && lookUp(entry, false, place, entry->statp) == 0) {
        errno = 0;
        return DDS_SLNONE;
    }
    entry->errno_value = err;
    std::memset(entry->statp, 0, sizeof *entry->statp);
    const typename Text::Shown path(entry->accpath);
    return VEX_FAIL_AS("fastStat", err, err, DDS_NS, "stat failed for path: %s", path.text());
}

template <typename Text>
uint16_t Walk<Text>::classify(Entry *entry) {
    const struct stat &status = *entry->statp;
    if (S_ISREG(status.st_mode)) return DDS_F;
    if (S_ISLNK(status.st_mode)) return DDS_SL;
    if (!S_ISDIR(status.st_mode)) return DDS_DEFAULT;
    entry->dev = status.st_dev;
    entry->ino = status.st_ino;
    entry->nlink = status.st_nlink;
    // a root may be called "."; it is a directory like any other
    if (entry->level > 0 && entry->name[0] == '.') {
        const View name(static_cast<const Char *>(entry->name),
                        static_cast<size_t>(entry->namelen));
        if (name.size() == 1 || (name.size() == 2 && name[1] == '.')) return DDS_DOT;
    }
    for (Entry *above = entry->parent; above->level >= 0; above = above->parent) {
        if (above->ino != entry->ino || above->dev != entry->dev) continue;
        entry->cycle = above;
        return DDS_DC;
    }
    return DDS_D;
}

}  // namespace vex::fs

#endif
