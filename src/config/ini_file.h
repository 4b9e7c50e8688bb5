// One parsed ini file: sections in file order, each with its keys in file order, each key with its
// chain of values.
#ifndef VEX_CONFIG_INI_FILE_H
#define VEX_CONFIG_INI_FILE_H

#include <time.h>

#include <cstdint>
#include <deque>
#include <string_view>

#include "base/unique_ptr.h"
#include "config/ini_memory.h"
#include "config/name_index.h"

namespace vex::config {

/// Holds the entries that stand before the first section header; its own header is never written.
inline constexpr const char *kHiddenSection = "__dummy__section__";
/// The path of a store that has no file.
inline constexpr const char *kDefaultPath = "__default__";

/// The place of an entry among those of its file; entries are never moved to another place.
using EntryId = uint32_t;
inline constexpr EntryId kNoEntry = NameIndex::kNone;

/// One "key=value" line. Deleted entries stay in their chain, unseen, until the file is released.
/// What a look-up touches stands first, in one cache line.
struct Entry {
    Text key;
    Text value;                // empty counts as missing
    EntryId older = kNoEntry;  // the entry of the same key that stood earlier in the section
    uint32_t slot = 0;         // place of the key in its section's order
    bool deleted = false;
    Text comment;
};

struct Section {
    Text name;
    Text comment;
    Vector<EntryId> order;  // per key its newest entry, in file order
    NameIndex index;        // key to newest entry
    bool deleted = false;
};

class File {
public:
    explicit File(std::string_view file_path);
    File(const File &) = delete;
    File &operator=(const File &) = delete;

    /// A section, deleted or not; nullptr when there never was one.
    Section *find(std::string_view name);
    /// The newest entry of a key that is there, in a section that is there; nullptr when not.
    Entry *find(std::string_view section, std::string_view key);
    /// nullptr for kNoEntry. Pointers to entries last until the next one is added.
    const Entry *entry(EntryId id) const { return id == kNoEntry ? nullptr : &entries_[id]; }
    const Entry *older(const Entry &one) const { return entry(one.older); }
    /// Finds or appends a section; a deleted one comes back without its entries.
    Section &obtain(Text name);
    /// Makes room for so many entries at once.
    void reserve(size_t entries) { entries_.reserve(entries); }
    /// Makes @p value the newest of @p key, the value before becoming its older one.
    void push(Section &section, Text key, Text value, Text comment);
    /// Replaces value 0; nullptr empties it. Appends section and key, brings back deleted ones,
    /// marks modified.
    void set(std::string_view section, std::string_view key, const char *value);
    /// Marks a key, or with key nullptr the section, as deleted; false when it is not there.
    bool erase(std::string_view section, const char *key);

    String path;
    UniqueMalloc<char> bytes;  // what was read from disk; texts point into it
    std::deque<Section, Allocator<Section>> sections;  // the hidden one first
    Text head_comment;
    Text trailing_comment;
    timespec mtime{};    // of the file when it was read or written; 0 when there was none
    int read_error = 0;  // errno that kept a file from being read: it must not be replaced
    uint32_t checksum;   // Adler-32 of the path
    bool modified = false;
    File *next = nullptr;

private:
    EntryId newest(const Section &section, std::string_view key, uint32_t hash) const;
    EntryId append(Section &section, Text key, uint32_t hash);
    void eraseChain(EntryId id);
    NameIndex index_;
    Vector<Entry> entries_;
};

/// The Adler-32 checksum of a path's text; 1 for an empty path.
uint32_t pathChecksum(std::string_view path);

/// Fills @p file from the text in its bytes, which ends at the first NUL. Logs each line that it
/// skips.
void parse(File &file, std::string_view text);

}  // namespace vex::config

#endif
