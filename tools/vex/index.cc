// "vex index": loads digests into the library's index and tells what it costs and what it saves.
#include <fcntl.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "command.h"
#include "command_options.h"

namespace tool {
namespace {

/// Digests up to 64 bytes: MD5 to SHA-512. Shorter ones end in zeros; their length keeps kinds
/// apart.
struct Entry {
    unsigned char digest[64];
    uint64_t length;
    uint64_t line;  ///< where the digest was first seen, in the order of loading
};
constexpr size_t kKeySize = offsetof(Entry, line);
constexpr int kShortest = 16;
constexpr uint64_t kSlabSize = 2UL << 20U;

int compareEntries(void *, const void *a, const void *b) {
    const int order = std::memcmp(a, b, kKeySize);
    return order < 0 ? -1 : static_cast<int>(order > 0);
}

/// A digest is random already.
uint64_t hashEntry(void *, const void *entry) {
    uint64_t hash = 0;
    std::memcpy(&hash, static_cast<const Entry *>(entry)->digest, sizeof hash);
    return hash;
}

/// Reads the digest at the head of a line "<hex>  name"; a '\' before it marks an escaped name.
bool parseEntry(const std::string &line, Entry *entry) {
    const size_t start = line.rfind('\\', 0) == 0 ? 1 : 0;
    const size_t end = std::min(line.find_first_of(" \t", start), line.size());
    const std::string digits = line.substr(start, end - start);
    *entry = {};
    const int length = HexDecode(digits.c_str(), entry->digest, sizeof entry->digest);
    if (length < kShortest) return false;
    entry->length = static_cast<uint64_t>(length);
    return true;
}

class Index {
public:
    explicit Index(uint32_t bits)
        : tree_(VexHashTreeNew(bits, sizeof(Entry), compareEntries, hashEntry, nullptr, kSlabSize)),
          grows_(bits == 0) {}
    ~Index() { VexHashTreeDelete(&tree_); }
    Index(const Index &) = delete;
    Index &operator=(const Index &) = delete;

    explicit operator bool() const { return tree_ != nullptr; }

    /// Inserts the entries in batches, so that reading the clock costs nothing; false after a
    /// report.
    bool load(std::vector<Entry> *batch) {
        const auto start = Clock::now();
        for (Entry &entry : *batch) {
            entry.line = ++entries_;
            const int result = VexHashTreeFindOrInsert(tree_, &entry, nullptr);
            if (result < 0) return fail("the index is out of memory (%m)") == kSuccess;
            records_ += static_cast<uint64_t>(result);
            if (!growIfFull()) return false;
        }
        inserting_ += Clock::now() - start;
        batch->clear();
        return true;
    }

    /// Looks every record up once; false after a report.
    bool lookUpAll() {
        std::vector<Entry> batch;
        std::unique_ptr<VexHashTreeIterator, void (*)(VexHashTreeIterator *)> it(
            VexHashTreeIteratorNewBegin(tree_),
            [](VexHashTreeIterator *p) { VexHashTreeIteratorDelete(&p); });
        if (it == nullptr) return false;
        Entry entry;
        while (VexHashTreeIteratorNext(it.get(), &entry) == 1) {
            batch.push_back(entry);
            if (batch.size() == kBatch && !lookUp(&batch)) return false;
        }
        return lookUp(&batch);
    }

    void print(bool json) const {
        const double per_insert = perUnit(inserting_, entries_);
        const double per_lookup = perUnit(looking_, records_);
        uint64_t depth = 0;
        for (uint64_t i = 0; i < uint64_t{1} << VexHashTreeGetBits(tree_); ++i)
            depth = std::max(depth, VexHashTreeNodeDepth(tree_->buckets[i]));
        const uint64_t memory = VexHashTreeGetMemoryUsage(tree_);
        const uint64_t slabs = VexHashTreeGetNumSlabs(tree_);
        std::printf(
            json ? "{\"lines\":%lu,\"records\":%lu,\"duplicates\":%lu,\"memory\":%lu,"
                   "\"slabs\":%lu,\"bits\":%u,\"depth\":%lu,\"insert_ns\":%.1f,"
                   "\"lookup_ns\":%.1f}\n"
                 : "lines       %lu\nrecords     %lu\nduplicates  %lu\nmemory      %lu bytes\n"
                   "slabs       %lu\nbits        %u\ndepth       %lu\ninsert      %.1f ns\n"
                   "lookup      %.1f ns\n",
            entries_, records_, entries_ - records_, memory, slabs, VexHashTreeGetBits(tree_),
            depth, per_insert, per_lookup);
    }

    static constexpr size_t kBatch = 4096;

private:
    using Clock = std::chrono::steady_clock;

    static double perUnit(Clock::duration time, uint64_t units) {
        return units == 0 ? 0
                          : std::chrono::duration<double, std::nano>(time).count() /
                                static_cast<double>(units);
    }

    /// Makes sixteen times as many buckets when the records outgrow them.
    bool growIfFull() {
        const uint32_t bits = VexHashTreeGetBits(tree_);
        if (!grows_ || records_ <= uint64_t{1} << bits || bits + 4 > 29) return true;
        return VexHashTreeSetBits(tree_, bits + 4) == 0 ||
               fail("the index is out of memory (%m)") == kSuccess;
    }

    bool lookUp(std::vector<Entry> *batch) {
        const auto start = Clock::now();
        for (const Entry &entry : *batch)
            if (VexHashTreeGet(tree_, &entry, nullptr) != 1)
                return fail("the index lost a record: report this") == kSuccess;
        looking_ += Clock::now() - start;
        batch->clear();
        return true;
    }

    VexHashTree *tree_;
    bool grows_;
    uint64_t entries_ = 0;
    uint64_t records_ = 0;
    Clock::duration inserting_{}, looking_{};
};

/// Loads every line of a list; false after a report.
bool loadList(const std::string &name, Index *index) {
    std::ifstream in(name == "-" ? "/dev/stdin" : name);
    if (!in) return fail("cannot read '%s' (%m): check the path", name.c_str()) == kSuccess;
    std::vector<Entry> batch;
    std::string line;
    for (size_t number = 1; std::getline(in, line); ++number) {
        Entry entry;
        if (!parseEntry(line, &entry))
            return fail(
                       "line %zu of '%s' begins with no digest of 32 to 128 digits: give lists "
                       "that 'vex digest' or sha512sum made, or --files",
                       number, name.c_str()) == kSuccess;
        batch.push_back(entry);
        if (batch.size() == Index::kBatch && !index->load(&batch)) return false;
    }
    if (in.bad()) return fail("cannot read '%s' to its end", name.c_str()) == kSuccess;
    return index->load(&batch);
}

/// Loads the SHA-512/256 digest of a file's data; false after a report.
bool loadFile(const std::string &name, Index *index) {
    char text[65];
    const int fd = open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0 || __sha512_256FromFile(fd, text, sizeof text) == nullptr)
        return fail("cannot read '%s' (%m): check the path and its permissions", name.c_str()) ==
               kSuccess;
    Entry entry;
    if (!parseEntry(text, &entry)) return false;
    std::vector<Entry> batch{entry};
    return index->load(&batch);
}

}  // namespace

int runIndex(int argc, char **argv) {
    bool files = false;
    bool json = false;
    uint32_t bits = 0;
    CommandOptions options;
    options.flag("files", &files);
    options.flag("json", &json);
    options.add("bits", OPT_TYPE_NUMBER32, &bits);
    const int first = options.parse(argc, argv);
    if (first < 0) return usageError("wrong options for 'index'");
    if (bits > 29) return usageError("--bits takes 0 to 29");
    if (first == argc) return usageError("'index' needs a list of digests; '-' is standard input");
    Index index(bits);
    if (!index) return fail("the index cannot be made (%m): use fewer --bits");
    for (int i = first; i < argc; ++i)
        if (!(files ? loadFile(argv[i], &index) : loadList(argv[i], &index))) return kFailure;
    if (!index.lookUpAll()) return kFailure;
    index.print(json);
    return kSuccess;
}

}  // namespace tool
