// Array and list appends against GLib, the in-memory sort against std::stable_sort, the external
// sort against GNU sort. Arguments: rows to run ("append", "memory", "external"; default all).
// BENCH_SORT_DIR names the directory of the external sort's files, BENCH_SORT_MIB its size.
#include <glib.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <vex/array.h>
#include <vex/list.h>
#include <vex/merge_sort.h>

#include "peer.h"

namespace {

constexpr size_t kAppends = 1000000;

void appends() {
    bench::Comparison row{.name = "array: 1e6 appends, then freed",
                          .peer = "GPtrArray",
                          .target = "<= 1.1",
                          .units = kAppends,
                          .byTime = true,
                          .rounds = 15};
    bench::compare(
        row,
        [] {
            vexArray *const array = vexArrayCreate(0);
            for (size_t i = 1; i <= kAppends; ++i) vexArrayAdd(array, reinterpret_cast<void *>(i));
            vexArrayDestroy(array, nullptr);
        },
        [] {
            GPtrArray *const array = g_ptr_array_new();
            for (size_t i = 1; i <= kAppends; ++i)
                g_ptr_array_add(array, reinterpret_cast<void *>(i));
            g_ptr_array_free(array, TRUE);
        });
    row.name = "list: 1e6 appends, then freed";
    row.peer = "GQueue";
    row.target = "<= 1.0";
    bench::compare(
        row,
        [] {
            vexList *const list = vexListCreate();
            for (size_t i = 1; i <= kAppends; ++i) vexListAdd(list, reinterpret_cast<void *>(i));
            vexListDestroy(list, nullptr);
        },
        [] {
            GQueue *const queue = g_queue_new();
            for (size_t i = 1; i <= kAppends; ++i)
                g_queue_push_tail(queue, reinterpret_cast<void *>(i));
            g_queue_free(queue);
        });
}

int compareKeys(void * /*context*/, const void *a, const void *b) {
    uint64_t x;
    uint64_t y;
    memcpy(&x, a, sizeof x);
    memcpy(&y, b, sizeof y);
    return x < y ? -1 : x > y ? 1 : 0;
}

template <size_t kBytes>
struct Element {
    uint64_t key;
    char rest[kBytes - sizeof(uint64_t)];
};

/// Both sides call the comparison through a pointer, as a caller's is.
template <typename T>
void inMemory(const char *name, size_t count) {
    std::mt19937_64 random(1);
    std::vector<T> input(count);
    for (T &element : input) {
        const uint64_t key = random();
        memcpy(&element, &key, sizeof key);
    }
    std::vector<T> work(count);
    std::vector<T> scratch(count);
    int (*volatile callback)(void *, const void *, const void *) = compareKeys;
    int (*const compare)(void *, const void *, const void *) = callback;
    bench::compare(
        {.name = name,
         .peer = "std::stable_sort",
         .target = "<= 1.05",
         .units = static_cast<double>(count),
         .byTime = true},
        [&] {
            work = input;
            BinarySortMergeSort(work.data(), count, sizeof(T), compare, nullptr, scratch.data());
        },
        [&] {
            work = input;
            std::stable_sort(work.begin(), work.end(), [compare](const T &a, const T &b) {
                return compare(nullptr, &a, &b) < 0;
            });
        });
}

constexpr size_t kRecord = 100;
constexpr size_t kKey = 10;
constexpr uint64_t kMemory = 64 << 20;

void *readRecord(void * /*user*/, FILE *stream, uint64_t *size) {
    auto *const record = static_cast<char *>(malloc(kRecord));
    const size_t got = fread_unlocked(record, 1, kRecord, stream);
    if (got == kRecord) {
        *size = kRecord + 16;  // with what malloc adds
        return record;
    }
    free(record);
    errno = got == 0 && !ferror(stream) ? ENOENT : EIO;
    return nullptr;
}

int compareRecords(void * /*user*/, const void *a, uint64_t /*numberA*/, const void *b,
                   uint64_t /*numberB*/) {
    return memcmp(a, b, kKey);
}

uint64_t writeRecord(void * /*user*/, void *record, FILE *stream, uint64_t /*offset*/) {
    return fwrite_unlocked(record, kRecord, 1, stream) == 1 ? kRecord : UINT64_MAX;
}

void freeRecord(void * /*user*/, void *record) {
    free(record);
}

void writeInput(const std::string &path, uint64_t records) {
    std::mt19937_64 random(1);
    FILE *const file = fopen(path.c_str(), "wb");
    char record[kRecord];
    memset(record, 'x', sizeof record);
    record[kRecord - 1] = '\n';
    for (uint64_t i = 0; i < records; ++i) {
        for (char *c = record; c != record + kKey; ++c) *c = static_cast<char>(' ' + random() % 95);
        fwrite(record, sizeof record, 1, file);
    }
    fclose(file);
}

void sortWithCallbacks(const std::string &dir) {
    constexpr uint64_t kBuffer = 256 << 10;
    constexpr uint64_t kMerge = 32;
    constexpr uint64_t kObjects = (kMemory - kBuffer) / (kRecord + 16 + 32);
    BinarySortCtx *ctx = BinarySortCtxConstruct(readRecord, compareRecords, nullptr, writeRecord,
                                                freeRecord, nullptr, nullptr, kObjects, UINT64_MAX,
                                                dir.c_str(), kMerge, kBuffer, BINARY_SORT_QUIET);
    FILE *const in = fopen((dir + "/in").c_str(), "rb");
    FILE *const out = fopen((dir + "/ours").c_str(), "wb");
    if (BinarySortFp(ctx, in, out) != 0) perror("BinarySortFp");
    fclose(in);
    fclose(out);
    BinarySortCtxDestruct(&ctx);
}

void external() {
    const char *const mib = getenv("BENCH_SORT_MIB");
    const uint64_t bytes = (mib != nullptr ? strtoull(mib, nullptr, 10) : 1024) << 20;
    const char *const parent = getenv("BENCH_SORT_DIR");
    std::string dir = std::string(parent != nullptr ? parent : "/tmp") + "/vex-bench-XXXXXX";
    if (mkdtemp(dir.data()) == nullptr) return perror("mkdtemp");
    writeInput(dir + "/in", bytes / kRecord);
    const std::string peer = "LC_ALL=C sort -s -k1.1,1.10 -S 64M --parallel=1 -T " + dir + " -o " +
                             dir + "/peer " + dir + "/in";
    bench::compare(
        {.name = "external sort of " + std::to_string(bytes >> 20) +
                 " MiB, 100-byte records, 64 MiB memory",
         .peer = "GNU sort",
         .target = "<= 1.0",
         .units = static_cast<double>(bytes / kRecord),
         .byTime = true,
         .rounds = 3},
        [&] { sortWithCallbacks(dir); },
        [&] {
            if (system(peer.c_str()) != 0) fprintf(stderr, "sort failed\n");
        });
    if (system(("cmp " + dir + "/ours " + dir + "/peer && rm -r " + dir).c_str()) != 0)
        fprintf(stderr, "the results differ: see %s\n", dir.c_str());
}

}  // namespace

int main(int argc, char **argv) {
    const auto wanted = [&](const char *name) {
        for (int i = 1; i < argc; ++i)
            if (strcmp(argv[i], name) == 0) return true;
        return argc == 1;
    };
    if (wanted("append")) appends();
    if (wanted("memory")) {
        inMemory<uint64_t>("sort of 1e6 8-byte elements in memory", 1000000);
        inMemory<Element<16>>("sort of 1e6 16-byte elements in memory", 1000000);
        inMemory<Element<104>>("sort of 2e5 104-byte elements in memory", 200000);
    }
    if (wanted("external")) external();
    return 0;
}
