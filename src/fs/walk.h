// The directory walker, for both forms of text.
//
// A walk is a chain of entries: from the current one over its later siblings to its parent, from
// there on likewise, up to a nameless parent of the root. What was returned for the last time is
// freed at the next step. All entries point into one path buffer, which only ever holds the path of
// the current entry, or of the directory that is being read.
//
// Unless the options forbid it the walk stands in the directory whose entries it returns. Whoever
// moves or exchanges directories meanwhile could lead it astray: each directory that is opened,
// entered or come back to must have the device and inode of its entry.
#ifndef VEX_FS_WALK_H
#define VEX_FS_WALK_H

#include <dirent.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/unique_fd.h"
#include "fs/walk_text.h"

namespace vex::fs {

/// The stream comes first: its address is the handle.
template <typename Text>
class Walk : Text::Stream {
public:
    using Char = typename Text::Char;
    using Entry = typename Text::Entry;
    using Stream = typename Text::Stream;
    using View = std::basic_string_view<Char>;

    struct Settings {
        uint32_t options, delay_ms;
        typename Text::Compare compar;
        typename Text::Filter filter;
        typename Text::Release release;
    };
    static Stream *open(const char *who, const Char *path, const Settings &settings);
    static Entry *next(const char *who, Stream *stream);
    static Entry *children(const char *who, Stream *stream, uint32_t options);
    static int close(const char *who, Stream *stream);
    static int instruct(const char *who, Entry *entry, unsigned instruction);
    static int errorOf(const char *who, const Entry *entry);
    static const char *errorText(const char *who, const Entry *entry);

private:
    enum class Mode { kChildren, kNames, kWalk };
    /// A name in the directory that is being read.
    struct Place {
        int directory;
        const char *name;
        bool too_long;  ///< the path is too long to be used as one
    };
    /// Directory entries on their way to becoming a list of children.
    struct Listing {
        Mode mode;
        int64_t budget;          ///< directories still to be found; below 0: look at every entry
        int descriptor = -1;     ///< of the directory
        size_t native_base = 0;  ///< bytes in front of a name in a path, where paths are used
        int entry_error = 0;     ///< why the directory could not be entered
        Entry *first = nullptr;
        Entry **end = &first;
        size_t count = 0;
    };

    static Walk *self(Stream *stream) { return static_cast<Walk *>(stream); }
    bool has(uint32_t options) const { return (this->dds_options & options) != 0; }
    bool moves() const { return !has(DDS_NOCHDIR); }

    // walk_entry.h: one entry
    void *allocate(size_t size);
    void recycle(void *block);
    Entry *make(Entry *parent, View name);
    bool admits(Entry *entry) const;
    void discard(Entry *entry);
    void discardList(Entry *first);
    void discardChain(Entry *from);
    size_t nameOffset(const Entry *parent) const;
    uint16_t examine(Entry *entry, bool follow, const Place *place = nullptr);
    static int lookUp(const Entry *entry, bool follow, const Place *place, struct stat *out);
    static uint16_t classify(Entry *entry);

    // walk_move.h: the working directory
    static bool isSame(int descriptor, const Entry *directory);
    UniqueFd openDirectory(const Entry *directory, int flags) const;
    bool enter(Entry *directory, int descriptor);
    const char *back(const Entry *directory);
    void endFollowing(Entry *entry);

    // walk_read.h: one directory
    Entry *read(Mode mode);
    int64_t budgetOf(const Entry *directory, Mode mode) const;
    void enterToRead(Entry *directory, Listing *listing);
    bool readEntries(Listing *listing);
    bool readBlock(const char *block, size_t size, Listing *listing);
    bool add(const dirent64 *found, Listing *listing);
    void describe(Entry *entry, const dirent64 *found, Listing *listing);
    bool returnFrom(Entry *directory);
    Entry *abandon(Entry *directory, Entry *first);
    bool grow(size_t needed, size_t more, Entry *pending);
    void relocate(Entry *entry, uintptr_t old) const;
    bool sort(Listing *listing);

    // walk_steps.h: from entry to entry
    bool start(const char *who, const Char *path);
    void destroy();
    Entry *step(const char *who);
    Entry *halt(const char *who, const char *why);
    bool descend(Entry *directory);
    Entry *arrive(const char *who, Entry *entry);
    Entry *advance(const char *who, Entry *done);
    Entry *ascend(const char *who, Entry *last);
    void follow(Entry *entry);
    void load(Entry *entry);

    struct stat scratch_;  ///< the status under DDS_NOSTAT
    Entry *parked_;        ///< the chain of a walk that was stopped
    int stop_error_;       ///< errno of what stopped it
    typename Text::Name name_;
    /// Blocks of entries that were freed, for the next directory.
    struct Spare {
        Spare *next;
    };
    Spare *spare_;
    size_t spare_count_;
    alignas(dirent64) char block_[32768];
};

}  // namespace vex::fs

#endif
