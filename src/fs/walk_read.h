// Reading one directory of a walk into a list of entries.
#ifndef VEX_FS_WALK_READ_H
#define VEX_FS_WALK_READ_H

#include "fs/walk_move.h"

namespace vex::fs {

inline constexpr size_t kPathMargin = 256;
inline constexpr size_t kSortMargin = 40;

/// Of a directory on a file system that counts ".." in its link count, the number of directories in
/// it: who needs no status can stop looking when they are found.
template <typename Text>
int64_t Walk<Text>::budgetOf(const Entry *directory, Mode mode) const {
    if (mode == Mode::kNames) return 0;
    if (!has(DDS_NOSTAT) || !has(DDS_PHYSICAL)) return -1;
    return static_cast<int64_t>(directory->nlink) - (has(DDS_SEEDOT) ? 0 : 2);
}

/// The list of the current entry's children; null when there are none, or after a failure: then
/// DDS_STOP is set, or the directory could not be opened.
template <typename Text>
typename Walk<Text>::Entry *Walk<Text>::read(Mode mode) {
    Entry *const directory = this->dds_cur;
    UniqueFd opened = openDirectory(directory, O_RDONLY);
    if (!opened) {
        if (mode == Mode::kWalk) {
            directory->info = DDS_DNR;
            directory->errno_value = errno;
        }
        return VEX_FAIL_AS("dirBuild", errno, errno, nullptr, "could not open directory");
    }
    Listing listing{mode, budgetOf(directory, mode)};
    listing.descriptor = opened.get();
    const bool wants_entry = moves() && (listing.budget != 0 || mode == Mode::kWalk);
    if (wants_entry) enterToRead(directory, &listing);
    bool good = readEntries(&listing);
    if (opened.close() != 0 && good)
        good = VEX_FAIL_AS("dirBuild", errno, errno, false, "could not close directory");
    if (this->dds_path != nullptr) this->dds_path[directory->pathlen] = Char{};
    if (!good) return abandon(directory, listing.first);

    const bool entered = wants_entry && listing.entry_error == 0;
    if (entered && (mode != Mode::kWalk || listing.count == 0) && !returnFrom(directory))
        return abandon(directory, listing.first);
    if (listing.count == 0) {
        if (mode == Mode::kWalk) {
            endFollowing(directory);
            directory->info = DDS_DP;
        }
        errno = 0;
        return nullptr;
    }
    if (this->dds_compar != nullptr && listing.count > 1 && !sort(&listing))
        return abandon(directory, listing.first);
    return listing.first;
}

template <typename Text>
void Walk<Text>::enterToRead(Entry *directory, Listing *listing) {
    if (enter(directory, listing->descriptor)) return;
    const ErrnoGuard guard;
    listing->entry_error = errno;
    if (listing->mode == Mode::kWalk && listing->budget != 0) directory->errno_value = errno;
    // the number is the one that readers of the log know this place by
    ErrorA(errno, "%s (%u): could not change directories", "dirBuild", 1269U);
}

template <typename Text>
bool Walk<Text>::returnFrom(Entry *directory) {
    if (back(directory) == nullptr) return true;
    const ErrnoGuard guard;
    ErrorA(errno, "%s (%u): could not change directories", "dirBuild", 1465U);
    return false;
}

/// Ends the whole walk: a list that is not complete is not used.
template <typename Text>
typename Walk<Text>::Entry *Walk<Text>::abandon(Entry *directory, Entry *first) {
    discardList(first);
    directory->info = DDS_ERR;
    this->dds_options |= DDS_STOP;
    stop_error_ = errno;
    return nullptr;
}

template <typename Text>
bool Walk<Text>::readEntries(Listing *listing) {
    const Entry *const directory = this->dds_cur;
    if (!moves()) {
        const size_t offset = nameOffset(directory);
        this->dds_path[offset - 1] = '/';
        this->dds_path[offset] = Char{};
        listing->native_base = Text::nativeLength(this->dds_path);
    }
    for (;;) {
        const ssize_t size =
            retryOnEintr([&] { return ::getdents64(listing->descriptor, block_, sizeof block_); });
        // ENOENT: the directory was removed after it was opened; it has no entries
        if (size == 0 || (size < 0 && errno == ENOENT)) return true;
        if (size < 0)
            return VEX_FAIL_AS("dirBuild", errno, errno, false, "could not read directory");
        if (!readBlock(block_, static_cast<size_t>(size), listing)) return false;
    }
}

template <typename Text>
bool Walk<Text>::readBlock(const char *block, size_t size, Listing *listing) {
    for (size_t at = 0; at < size;) {
        const auto *const found = reinterpret_cast<const dirent64 *>(block + at);
        at += found->d_reclen;
        const char *const name = found->d_name;
        const bool dot = name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
        if ((!dot || has(DDS_SEEDOT)) && !add(found, listing)) return false;
    }
    return true;
}

template <typename Text>
bool Walk<Text>::add(const dirent64 *found, Listing *listing) {
    const View name = name_.convert(found->d_name);
    Entry *const entry = make(this->dds_cur, name);
    if (entry == nullptr || !admits(entry)) {
        if (entry != nullptr) discard(entry);
        return VEX_FAIL_AS("dirBuild", ENOMEM, ENOMEM, false, "could not allocate memory");
    }
    *listing->end = entry;
    listing->end = &entry->link;
    ++listing->count;
    // the name, a '/' behind it when it is a directory that is read in its turn, the terminator
    if (!grow(static_cast<size_t>(entry->pathlen) + 2, name.size(), listing->first)) return false;
    describe(entry, found, listing);
    return true;
}

template <typename Text>
void Walk<Text>::describe(Entry *entry, const dirent64 *found, Listing *listing) {
    entry->accpath = moves() ? static_cast<Char *>(entry->name) : this->dds_path;
    if (listing->entry_error != 0) {
        const bool wanted = listing->budget != 0;
        entry->accpath = entry->parent->accpath;
        entry->info = wanted ? DDS_NS : DDS_NSOK;
        entry->errno_value = wanted ? listing->entry_error : 0;
        std::memset(entry->statp, 0, sizeof *entry->statp);
        return;
    }
    if (listing->budget == 0 ||
        (listing->budget > 0 && found->d_type != DT_UNKNOWN && found->d_type != DT_DIR)) {
        entry->info = DDS_NSOK;
        if (!has(DDS_NOSTAT)) std::memset(entry->statp, 0, sizeof *entry->statp);
        return;
    }
    Place place{listing->descriptor, found->d_name, false};
    Char *const tail = this->dds_path + nameOffset(entry->parent);
    if (!moves()) {
        std::char_traits<Char>::copy(tail, entry->name, static_cast<size_t>(entry->namelen) + 1);
        place.too_long = listing->native_base + std::strlen(found->d_name) >= PATH_MAX;
    }
    entry->info = examine(entry, false, &place);
    if (!moves()) *tail = Char{};
    const bool directory = entry->info == DDS_D || entry->info == DDS_DC || entry->info == DDS_DOT;
    if (directory && listing->budget > 0) --listing->budget;
}

/// Makes the path buffer long enough and takes every entry along that points into it.
template <typename Text>
bool Walk<Text>::grow(size_t needed, size_t more, Entry *pending) {
    const auto size = static_cast<size_t>(this->dds_pathlen);
    if (needed <= size) return true;
    const auto old = reinterpret_cast<uintptr_t>(this->dds_path);
    const size_t wanted = size + more + kPathMargin;
    bool good = true;
    if (wanted > INT32_MAX) {
        free(this->dds_path);
        this->dds_path = nullptr;
        good = VEX_FAIL_AS("pathAlloc", ENAMETOOLONG, ENAMETOOLONG, false, "path name too long");
    } else {
        void *const grown = realloc(this->dds_path, wanted * sizeof(Char));
        if (grown == nullptr)
            return VEX_FAIL_AS("pathAlloc", errno, errno, false, "failed to reallocate memory");
        this->dds_path = static_cast<Char *>(grown);
        this->dds_pathlen = static_cast<int32_t>(wanted);
    }
    if (reinterpret_cast<uintptr_t>(this->dds_path) == old) return good;
    for (Entry *entry = pending; entry != nullptr; entry = entry->link) relocate(entry, old);
    for (Entry *entry = this->dds_cur; entry != nullptr;
         entry = entry->link != nullptr ? entry->link : entry->parent)
        relocate(entry, old);
    return good;
}

/// An access path is the whole buffer or not in it at all.
template <typename Text>
void Walk<Text>::relocate(Entry *entry, uintptr_t old) const {
    if (reinterpret_cast<uintptr_t>(entry->accpath) == old) entry->accpath = this->dds_path;
    entry->path = this->dds_path;
}

template <typename Text>
bool Walk<Text>::sort(Listing *listing) {
    if (listing->count > static_cast<size_t>(this->dds_nitems)) {
        const size_t wanted = listing->count + kSortMargin;
        void *const grown = wanted > INT32_MAX ? (errno = ENOMEM, nullptr)
                                               : realloc(this->dds_array, wanted * sizeof(Entry *));
        if (grown == nullptr) {
            (void)VEX_FAIL_AS("dirSort", errno, errno, 0, "could not reallocate memory");
            return VEX_FAIL_AS("dirBuild", errno, errno, false, "could not sort directories");
        }
        this->dds_array = static_cast<Entry **>(grown);
        this->dds_nitems = static_cast<int32_t>(wanted);
    }
    Entry **end = this->dds_array;
    for (Entry *entry = listing->first; entry != nullptr; entry = entry->link) *end++ = entry;
    qsort_r(
        this->dds_array, listing->count, sizeof(Entry *),
        [](const void *a, const void *b, void *walk) {
            return static_cast<Walk *>(walk)->dds_compar(
                const_cast<const Entry **>(static_cast<Entry *const *>(a)),
                const_cast<const Entry **>(static_cast<Entry *const *>(b)));
        },
        this);
    Entry **tail = &listing->first;
    for (Entry **at = this->dds_array; at != end; ++at) {
        *tail = *at;
        tail = &(*at)->link;
    }
    *tail = nullptr;
    return true;
}

}  // namespace vex::fs

#endif
