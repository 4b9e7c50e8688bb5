// Walking 200,000 entries in a warm cache: against fts(3), against std::filesystem with lstat, and
// the wide form against the narrow one.
#include <fcntl.h>
#include <fts.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include <vex/dir.h>
#include <vex/file.h>

#include "peer.h"

namespace {

constexpr int kEntries = 200'000;
volatile uint64_t sink;

/// 64 directories with 64 each, every one of those with 47 files: names as a store of blocks has
/// them.
void plant(const std::string &root) {
    int made = 0;
    char name[64];
    for (int i = 0; i < 64 * 64; ++i) {
        (void)snprintf(name, sizeof name, "/%02x", i / 64);
        if (i % 64 == 0) made += mkdir((root + name).c_str(), 0755) == 0 ? 1 : 0;
        (void)snprintf(name, sizeof name, "/%02x/%02x", i / 64, i % 64);
        made += mkdir((root + name).c_str(), 0755) == 0 ? 1 : 0;
        const std::string directory = root + name;
        for (int k = 0; k < 48 && made < kEntries; ++k) {
            (void)snprintf(name, sizeof name, "/%08x%08x.blk", i * 2654435761U, k * 40503U);
            const int file = open((directory + name).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
            made += file >= 0 ? 1 : 0;
            (void)close(file);
        }
    }
    std::printf("tree of %d entries\n", made);
}

void walkFts(std::string root, int options) {
    char *roots[] = {root.data(), nullptr};
    FTS *const walk = fts_open(roots, options, nullptr);
    uint64_t sum = 0;
    while (const FTSENT *const entry = fts_read(walk))
        sum += entry->fts_info == FTS_F ? static_cast<uint64_t>(entry->fts_statp->st_size) + 1 : 0;
    (void)fts_close(walk);
    sink = sum;
}

void walkNarrow(const std::string &root, uint32_t options) {
    DirStream *const walk = DirOpenA(root.c_str(), options, nullptr, 0);
    uint64_t sum = 0;
    while (const DirEntry *const entry = DirGetNextA(walk))
        sum += entry->info == DDS_F ? static_cast<uint64_t>(entry->statp->st_size) + 1 : 0;
    (void)DirCloseA(walk);
    sink = sum;
}

void walkWide(const std::string &root, uint32_t options) {
    DirStreamW *const walk =
        DirOpenW(std::wstring(root.begin(), root.end()).c_str(), options, nullptr, 0);
    uint64_t sum = 0;
    while (const DirEntryW *const entry = DirGetNextW(walk))
        sum += entry->info == DDS_F ? static_cast<uint64_t>(entry->statp->st_size) + 1 : 0;
    (void)DirCloseW(walk);
    sink = sum;
}

void walkStandard(const std::string &root) {
    uint64_t sum = 0;
    struct stat status;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(root))
        if (lstat(entry.path().c_str(), &status) == 0 && S_ISREG(status.st_mode))
            sum += static_cast<uint64_t>(status.st_size) + 1;
    sink = sum;
}

}  // namespace

int main() {
    char directory[] = "/tmp/vexbench-XXXXXX";
    if (mkdtemp(directory) == nullptr) return 1;
    const std::string root = directory;
    plant(root);
    static const struct {
        const char *name;
        uint32_t options;
        const char *target;
    } kRows[] = {
        {"physical", DDS_PHYSICAL, "<= 1.00"},
        {"physical, NOCHDIR", DDS_PHYSICAL | DDS_NOCHDIR, "<= 0.95"},
        {"physical, NOSTAT", DDS_PHYSICAL | DDS_NOSTAT, "<= 0.90"},
    };
    bench::Comparison row;
    row.units = kEntries;
    row.byTime = true;
    for (const auto &walk : kRows) {
        row.name = std::string("walk, per entry, ") + walk.name;
        row.peer = "fts";
        row.target = walk.target;
        const auto ours = [&] { walkNarrow(root, walk.options); };
        bench::compare(row, ours, [&] { walkFts(root, static_cast<int>(walk.options)); });
        row.peer = "std::filesystem";
        row.target = "<= 0.75";
        bench::compare(row, ours, [&] { walkStandard(root); });
        row.name = std::string("wide walk, per entry, ") + walk.name;
        row.peer = "narrow";
        row.target = "<= 1.3";
        bench::compare(
            row, [&] { walkWide(root, walk.options); }, ours);
    }
    (void)DeleteTreeA(directory);
    return 0;
}
