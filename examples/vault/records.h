// Records: short byte strings in which the vault writes its lists. They are kept in sealed files,
// and sorted outside memory where an order is needed.
#ifndef VAULT_RECORDS_H
#define VAULT_RECORDS_H

#include "catalogue.h"

namespace vault {

/// Append a value, big-endian, so that memcmp orders records as their numbers do.
void put64(Bytes *record, uint64_t value);
void put32(Bytes *record, uint32_t value);
void putDigest(Bytes *record, const Digest &digest);
void putText(Bytes *record, const std::string &text);

/// Takes values off again; fails where the bytes end too early.
struct Cursor {
    const unsigned char *next;
    size_t left;

    Cursor(const unsigned char *data, size_t size) : next(data), left(size) {}
    explicit Cursor(const Bytes &record) : Cursor(record.data(), record.size()) {}
    uint64_t take64();
    uint32_t take32();
    Digest takeDigest();
    std::string takeText();
    const unsigned char *take(size_t size);
};

/// Writes records to sealed files of some megabytes, "<prefix>-0000" and so on.
class RecordWriter {
public:
    RecordWriter(Catalogue *catalogue, std::string prefix)
        : catalogue_(catalogue), prefix_(std::move(prefix)) {}
    void add(const Bytes &record);
    void finish();

private:
    Catalogue *catalogue_;
    std::string prefix_;
    Bytes content_;
    unsigned files_ = 0;
};

/// Reads the records of all files whose names have a prefix.
class RecordReader {
public:
    RecordReader(Catalogue *catalogue, const std::string &prefix)
        : catalogue_(catalogue), names_(catalogue->files(prefix)) {}
    /// Reads the next record; false at the end.
    bool next(Bytes *record);

private:
    Catalogue *catalogue_;
    std::vector<std::string> names_;
    size_t file_ = 0;
    Plain content_;
    Cursor cursor_{nullptr, 0};
};

/// Sorts any number of records by their first bytes: more than memory holds are no trouble.
class RecordSorter {
public:
    /// @param directory  for temporary files, which lose their names at once.
    RecordSorter(const std::string &directory, size_t key_size);
    void add(const Bytes &record);
    /// Ends adding.
    void sort();
    /// Reads the next record in order; false at the end.
    bool next(Bytes *record);

private:
    using Stream = std::unique_ptr<FILE, int (*)(FILE *)>;
    Stream temporary() const;

    std::string directory_;
    size_t key_size_;
    Stream unsorted_, sorted_;
};

}  // namespace vault

#endif
