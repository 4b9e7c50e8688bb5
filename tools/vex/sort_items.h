// What "vex sort" sorts: lines, or records of one size. Both come as the callbacks of the merge
// sort, with the SortItems as their user.
#ifndef VEX_TOOL_SORT_ITEMS_H
#define VEX_TOOL_SORT_ITEMS_H

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>

#include <vex/merge_sort.h>
#include <vex/preallocator.h>

#include "base/unique_ptr.h"
#include "progress.h"

namespace tool {

struct SortKey {
    uint64_t record = 0;  ///< bytes of a record; 0 for lines
    uint64_t offset = 0;  ///< of the key within the record
    uint64_t length = 0;
    bool whole() const { return length == record; }
};

/// The callbacks that fit the items.
struct SortCallbacks {
    BinarySortRead read;
    BinarySortCompare compare;
    BinarySortWrite write;
    BinarySortFree free;
    uint64_t least_size;  ///< bytes that an item takes at least, as read reports it
};

class SortItems {
public:
    /// @p size is the source's, 0 when that is unknown.
    SortItems(const SortKey &key, FILE *source, FILE *destination, uint64_t size);

    SortCallbacks callbacks() const;
    /// True when the source ended within a record.
    bool torn() const { return torn_; }

private:
    struct Line;

    static SortItems *of(void *user) { return static_cast<SortItems *>(user); }
    static void *readLine(void *user, FILE *stream, uint64_t *size);
    static void *readRecord(void *user, FILE *stream, uint64_t *size);
    static int compareLines(void *user, const void *a, uint64_t, const void *b, uint64_t);
    static int compareRecords(void *user, const void *a, uint64_t, const void *b, uint64_t);
    static uint64_t writeLine(void *user, void *line, FILE *stream, uint64_t offset);
    static uint64_t writeRecord(void *user, void *record, FILE *stream, uint64_t offset);
    static void freeLine(void *user, void *line);
    static void freeRecord(void *user, void *record);

    void noteRead(const FILE *stream, uint64_t bytes);
    void noteWritten(const FILE *stream, uint64_t offset);

    struct BlocksDeleter {
        void operator()(preallocator *blocks) const { preallocator_destruct(blocks); }
    };

    const SortKey key_;
    FILE *const source_;
    FILE *const destination_;
    std::unique_ptr<preallocator, BlocksDeleter> blocks_;  ///< of records
    vex::UniqueMalloc<char> line_;                         ///< getline's buffer
    size_t line_room_ = 0;
    bool torn_ = false;
    uint64_t size_;
    uint64_t read_ = 0;
    uint64_t calls_ = 0;
    bool merging_ = false;
    std::optional<Progress> progress_;
};

}  // namespace tool

#endif
