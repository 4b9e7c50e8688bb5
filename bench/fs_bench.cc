// Copying and comparing files against a plain loop and cmp, Adler-32 against zlib.
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <random>
#include <string>
#include <vector>

#include <vex/file.h>

#include "peer.h"

namespace {

constexpr size_t kSize = 256UL << 20;
volatile uint32_t sink;

void loopCopy(const char *from, const char *to) {
    const int in = open(from, O_RDONLY), out = open(to, O_WRONLY | O_CREAT | O_EXCL, 0644);
    char block[32768];
    ssize_t got;
    while ((got = read(in, block, sizeof block)) > 0)
        if (write(out, block, static_cast<size_t>(got)) != got) perror("write");
    if (fsync(out) != 0) perror("fsync");
    (void)close(in);
    (void)close(out);
}

uint32_t zlibChecksum(const char *path) {
    const int in = open(path, O_RDONLY);
    unsigned char block[32768];
    uLong sum = 1;
    ssize_t got;
    while ((got = read(in, block, sizeof block)) > 0)
        sum = adler32(sum, block, static_cast<uInt>(got));
    (void)close(in);
    return static_cast<uint32_t>(sum);
}

}  // namespace

int main() {
    char directory[] = "/tmp/vexbench-XXXXXX";
    if (mkdtemp(directory) == nullptr) return 1;
    const std::string a = std::string(directory) + "/a", b = a + "b", c = a + "c";
    {
        std::vector<char> block(1 << 20);
        std::mt19937 random(1);
        const int out = open(a.c_str(), O_WRONLY | O_CREAT, 0644);
        for (size_t i = 0; i < kSize >> 20; ++i) {
            for (char &byte : block) byte = static_cast<char>(random());
            if (write(out, block.data(), block.size()) < 0) perror("write");
        }
        (void)close(out);
    }
    const char *const from = a.c_str(), *const to = b.c_str();
    bench::Comparison copy{.name = "copy of 256 MiB with fsync, FileCopy",
                           .peer = "32 KiB loop",
                           .target = "<= 1.0",
                           .byTime = true};
    bench::compare(
        copy,
        [&] {
            (void)unlink(to);
            (void)FileCopy(from, to, 0);
        },
        [&] {
            (void)unlink(c.c_str());
            loopCopy(from, c.c_str());
        });
    const std::string cmp = "cmp " + a + " " + b;
    bench::Comparison compare{.name = "compare of 256 MiB, FileCompare",
                              .peer = "cmp",
                              .target = ">= 1.0",
                              .units = kSize};
    bench::compare(
        compare, [&] { sink = static_cast<uint32_t>(FileCompare(from, to)); },
        [&] { sink = static_cast<uint32_t>(system(cmp.c_str())); });
    bench::Comparison adler{.name = "Adler-32 of a file of 256 MiB, CRCFromFile",
                            .peer = "zlib",
                            .target = ">= 1.0",
                            .units = kSize};
    bench::compare(
        adler, [&] { sink = CRCFromFile(from); }, [&] { sink = zlibChecksum(from); });
    (void)DeleteTreeA(directory);
    return 0;
}
