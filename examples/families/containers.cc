// containers [TOP]: counts the words of standard input and prints the TOP (10) most frequent, ties
// in the order of the words. The counts live in a hash tree, which holds millions of words at 24
// bytes and a few nanoseconds each; the sort is stable, so equal counts keep the tree's order.
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include <vex/frame.h>
#include <vex/hash_tree.h>
#include <vex/merge_sort.h>

namespace {

struct Record {
    char word[56];  // cut, and filled up with zeros
    uint64_t count;
};

int compareWords(void *, const void *a, const void *b) {
    const int order = memcmp(static_cast<const Record *>(a)->word,
                             static_cast<const Record *>(b)->word, sizeof Record::word);
    return order < 0 ? -1 : order > 0;  // never -2: that means "could not compare"
}

int moreFirst(void *, const void *a, const void *b) {
    const uint64_t x = static_cast<const Record *>(a)->count,
                   y = static_cast<const Record *>(b)->count;
    return x > y ? -1 : x < y;
}

uint64_t hashWord(void *, const void *data) {
    uint64_t hash = 14695981039346656037u;
    for (const char c : static_cast<const Record *>(data)->word)
        hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211u;
    return hash ^ hash >> 32;
}

bool count(VexHashTree *tree, const std::string &word) {
    Record record = {}, present;
    word.copy(record.word, sizeof record.word - 1);
    record.count = 1;
    const int inserted = VexHashTreeFindOrInsert(tree, &record, &present);
    if (inserted != 0) return inserted == 1;
    record.count = present.count + 1;
    return VexHashTreeReplaceOrInsert(tree, &record, nullptr) == 1;
}

/// All records of the tree in the order of their words.
std::vector<Record> records(VexHashTree *tree) {
    std::vector<Record> all(VexHashTreeGetNumUsedNodes(tree)), scratch(all.size());
    VexHashTreeIterator *it = VexHashTreeIteratorNewBegin(tree);
    size_t n = 0;
    while (it != nullptr && n < all.size() && VexHashTreeIteratorNext(it, &all[n]) == 1) ++n;
    VexHashTreeIteratorDelete(&it);
    BinarySortMergeSort(all.data(), n, sizeof(Record), compareWords, nullptr, scratch.data());
    BinarySortMergeSort(all.data(), n, sizeof(Record), moreFirst, nullptr, scratch.data());
    return all;
}

}  // namespace

int main(int argc, char **argv) {
    const zqutil::LibAutoInit library("containers");
    const size_t top = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 10;
    // 2^16 buckets serve some hundred thousand words; slabs of 2 MiB lie on huge pages
    VexHashTree *tree =
        VexHashTreeNew(16, sizeof(Record), compareWords, hashWord, nullptr, 2u << 20);
    if (tree == nullptr) return 1;
    bool good = true;
    for (std::string word; good && std::cin >> word;) good = count(tree, word);
    const std::vector<Record> all = good ? records(tree) : std::vector<Record>();
    for (size_t i = 0; i < all.size() && i < top; ++i)
        std::printf("%" PRIu64 " %s\n", all[i].count, all[i].word);
    VexHashTreeDelete(&tree);
    return good ? 0 : 1;
}
