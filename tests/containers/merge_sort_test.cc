#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <vex/merge_sort.h>

#include "base/unique_fd.h"
#include "support/faults.h"
#include "support/log_capture.h"
#include "support/seed.h"
#include "support/temp_dir.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vextest::LogCapture;

// ---- in memory ----

struct ByFirstByte {
    uint64_t calls = 0, fail_at = 0;
    bool contradict = false;
    static int compare(void *context, const void *a, const void *b) {
        auto *const self = static_cast<ByFirstByte *>(context);
        if (++self->calls == self->fail_at) throw std::runtime_error("compare");
        if (self->contradict) return static_cast<int>(self->calls * 2654435761U >> 16) % 3 - 1;
        return *static_cast<const unsigned char *>(a) - *static_cast<const unsigned char *>(b);
    }
};

std::vector<std::string> split(const std::string &bytes, size_t size) {
    std::vector<std::string> elements;
    for (size_t at = 0; at < bytes.size(); at += size) elements.push_back(bytes.substr(at, size));
    return elements;
}

TEST(BinarySortMergeSort, SortsElementsOfEverySizeStablyAndLosesNone) {
    std::mt19937 random(static_cast<unsigned>(vextest::testSeed()));
    for (const size_t size : {1, 3, 4, 8, 12, 16, 17, 24, 100})
        for (const size_t count : {0, 1, 2, 3, 7, 8, 9, 16, 17, 33, 100, 1000}) {
            SCOPED_TRACE(testing::Message() << count << " elements of " << size);
            std::string input(size * count, '\0'), scratch(size * count, '\0');
            for (char &c : input) c = static_cast<char>(random() % 8);
            auto expected = split(input, size), original = expected;
            std::stable_sort(expected.begin(), expected.end(),
                [](const std::string &a, const std::string &b) { return a[0] < b[0]; });
            std::string sorted = input;
            ByFirstByte order;
            BinarySortMergeSort(sorted.data(), count, size, order.compare, &order, scratch.data());
            EXPECT_EQ(expected, split(sorted, size));
            const uint64_t calls = order.calls;
            BinarySortMergeSort(sorted.data(), count, size, order.compare, &order, scratch.data());
            EXPECT_LE(order.calls - calls, 2 * count);  // what is in order is only looked at
            // a comparison that throws or contradicts itself costs the order, never an element
            std::sort(original.begin(), original.end());
            for (uint64_t fail_at = 0; fail_at <= calls; fail_at += calls / 20 + 1) {
                ByFirstByte bad{0, fail_at, fail_at == 0};
                sorted = input;
                try {
                    BinarySortMergeSort(sorted.data(), count, size, bad.compare, &bad, scratch.data());
                } catch (const std::runtime_error &) {}
                auto elements = split(sorted, size);
                std::sort(elements.begin(), elements.end());
                ASSERT_EQ(original, elements) << fail_at;
            }
        }
    LogCapture log;
    BinarySortMergeSort(nullptr, 2, 8, ByFirstByte::compare, nullptr, nullptr);
    EXPECT_THAT(log.lines(), ElementsAre("22 BinarySortMergeSort: invalid NULL parameter"));
}

// ---- streams: an object is a line, its key the first word; "#" skips, "!" fails ----

struct Lines {
    struct Object {
        std::string line;
    };
    std::set<const void *> live;
    size_t calls = 0, fail_at = 0;
    uint64_t last_number = 0;
    bool numbers_matter = false, keep_newer = false, failed = false;

    bool fails() { return failed = failed || ++calls == fail_at; }
    static Lines *of(void *user) { return static_cast<Lines *>(user); }
    static std::string key(const void *object) {
        const auto &line = static_cast<const Object *>(object)->line;
        return line.substr(0, line.find(' '));
    }
    static void *read(void *user, FILE *stream, uint64_t *size) {
        if (of(user)->fails()) return errno = EPROTO, nullptr;
        char *text = nullptr;
        size_t room = 0;
        const ssize_t length = getline(&text, &room, stream);
        const std::string line(text, length < 0 ? 0 : static_cast<size_t>(length));
        free(text);
        if (length < 0) return errno = ENOENT, nullptr;
        if (line[0] == '#' || line[0] == '!') return errno = line[0] == '#' ? 0 : EPROTO, nullptr;
        *size = line.size();
        auto *const object = new Object{line};
        of(user)->live.insert(object);
        return object;
    }
    static int compare(void *user, const void *a, uint64_t numberA, const void *b, uint64_t numberB) {
        if (of(user)->fails()) throw std::runtime_error("compare failed");
        const int order = key(a).compare(key(b));
        return order != 0 || !of(user)->numbers_matter ? order : numberA < numberB ? 1 : -1;  // newest first
    }
    static int drop(void *user, const void *, uint64_t fresh, const void *, uint64_t present) {
        return (fresh > present) == of(user)->keep_newer ? 1 : -1;
    }
    static uint64_t write(void *user, void *object, FILE *stream, uint64_t offset) {
        EXPECT_EQ(ftello(stream), static_cast<off_t>(offset));
        const std::string &line = static_cast<Object *>(object)->line;
        if (of(user)->fails()) return errno = ENOSPC, UINT64_MAX;
        return fwrite(line.data(), line.size(), 1, stream) == 1 ? line.size() : UINT64_MAX;
    }
    static void release(void *user, void *object) {
        EXPECT_EQ(1u, of(user)->live.erase(object));
        delete static_cast<Object *>(object);
    }
};

struct Limits {
    uint64_t objects = 3, bytes = UINT64_MAX, merge = 2, buffer = UINT64_MAX;
    uint32_t flags = 0;
    bool collapse = false;
};

struct Sort : testing::Test {
    /// Sorts the text; -1 or 0. Whatever happens every object is freed and no file is left.
    int sort(const std::string &text, const Limits &limits, const char *destination = nullptr) {
        const int descriptors = vextest::openDescriptors();
        int result = -1;
        {
            char *buffer = nullptr;
            size_t size = 0;
            vex::UniqueFile in, out;
            {
                vextest::FaultPause pause;
                in = vex::UniqueFile(
                    text.empty() ? tmpfile() : fmemopen(const_cast<char *>(text.data()), text.size(), "r"));
                out = vex::UniqueFile(destination ? fopen(destination, "w") : open_memstream(&buffer, &size));
            }
            BinarySortCtx *ctx = BinarySortCtxConstruct(lines.read, lines.compare,
                limits.collapse ? lines.drop : nullptr, lines.write, lines.release, nullptr, &lines, limits.objects,
                limits.bytes, dir.path().c_str(), limits.merge, limits.buffer, limits.flags);
            result = ctx == nullptr ? -1 : BinarySortFp(ctx, in.get(), out.get());
            error = errno;
            vextest::FaultPause pause;
            if (ctx != nullptr) BinarySortCtxDestruct(&ctx);
            EXPECT_EQ(nullptr, ctx);
            (void)out.close();
            sorted.assign(buffer ? buffer : "", size);
            free(buffer);
        }
        vextest::FaultPause pause;
        EXPECT_THAT(lines.live, IsEmpty());
        if ((limits.flags & BINARY_SORT_KEEP) == 0) { EXPECT_THAT(dir.list(), IsEmpty()); }
        EXPECT_EQ(descriptors, vextest::openDescriptors());
        return result;
    }
    std::string name(int number) const {
        return dir / ("sort-" + std::to_string(getpid()) + "-" + std::to_string(number) + ".tmp");
    }
    vextest::TempDir dir;
    Lines lines;
    std::string sorted;
    int error = 0;
};

/// What a sort must give: stable, one line of each key (the first, or the last) when asked.
std::string oracle(std::vector<std::string> input, bool collapse, bool newest_first, bool keep_newer) {
    if (newest_first || keep_newer) std::reverse(input.begin(), input.end());
    const auto key = [](const std::string &line) { return line.substr(0, line.find(' ')); };
    std::stable_sort(input.begin(), input.end(), [&](const auto &a, const auto &b) { return key(a) < key(b); });
    if (collapse)
        input.erase(
            std::unique(input.begin(), input.end(), [&](const auto &a, const auto &b) { return key(a) == key(b); }),
            input.end());
    std::string text;
    for (const std::string &line : input) text += line;
    return text;
}

TEST_F(Sort, AgreesWithAStableSortWhateverTheLimits) {
    std::mt19937 random(static_cast<unsigned>(vextest::testSeed()));
    LogCapture log;
    for (int round = 0; round < 300; ++round) {
        Limits limits;
        limits.objects = std::vector<uint64_t>{1, 2, 7, 1000}[random() % 4];
        limits.bytes = std::vector<uint64_t>{0, 40, UINT64_MAX}[random() % 3];
        limits.merge = std::vector<uint64_t>{2, 3, 16, 128}[random() % 4];
        limits.buffer = std::vector<uint64_t>{0, 1, 4096, UINT64_MAX}[random() % 4];
        limits.collapse = random() % 2 == 0;
        lines.numbers_matter = !limits.collapse && random() % 2 == 0;
        lines.keep_newer = random() % 2 == 0;
        if (limits.collapse || lines.numbers_matter) limits.flags = BINARY_SORT_NUMBERS;
        std::vector<std::string> input;
        std::string text;
        for (size_t i = random() % 200; i > 0; --i) {
            input.push_back(std::to_string(random() % 60) + " " + std::to_string(i) + "\n");
            text += input.back();
            if (random() % 8 == 0) text += "# skipped\n";
        }
        SCOPED_TRACE(testing::Message() << round << ": " << input.size() << " lines, " << limits.objects << " objects, "
                                        << limits.merge << " files");
        ASSERT_EQ(0, sort(text, limits));
        ASSERT_EQ(oracle(input, limits.collapse, lines.numbers_matter, limits.collapse && lines.keep_newer), sorted);
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(Sort, FailsWholeWhenAnyCallOrCallbackFails) {
    const std::string text = "5 a\n3 b\n# -\n5 c\n1 d\n3 e\n2 f\n9 g\n5 h\n0 i\n4 j\n";
    const std::string expected = "0 i\n1 d\n2 f\n3 b\n3 e\n4 j\n5 a\n5 c\n5 h\n9 g\n";
    for (const uint32_t flags : {0U, 4U}) {
        const Limits limits{3, UINT64_MAX, 2, 64, flags, false};
        const auto check = [&] {
            LogCapture log;
            const int result = sort(text, limits);
            EXPECT_TRUE(result == -1 || sorted == expected);
            EXPECT_EQ(result == -1, !log.lines().empty());
            if (result == -1) { EXPECT_NE(0, error); }
            return result;
        };
        EXPECT_LT(
            100u, vextest::forEachFault({"open", "fdopen", "fcntl", "lseek", "fread", "fwrite", "fflush", "fclose",
                                            "malloc", "calloc", "strdup", "unlink"},
                      EIO, [&](const vextest::FaultScope &scope) { EXPECT_TRUE(check() == 0 || scope.fired()); }));
        for (lines.fail_at = 1, lines.failed = true; lines.failed; ++lines.fail_at) {
            lines.calls = 0;
            lines.failed = false;
            const int result = check();
            EXPECT_EQ(lines.failed ? -1 : 0, result) << "callback " << lines.fail_at;
        }
        EXPECT_LT(80u, lines.fail_at);
        lines.fail_at = 0;
    }
}

TEST_F(Sort, FailsOnAFullDisk) {
    LogCapture log;
    EXPECT_EQ(-1, sort("b\na\n", {}, "/dev/full"));
    EXPECT_EQ(ENOSPC, error);
    EXPECT_THAT(log.lines(), ElementsAre("28 BinarySortFp: Unknown error occurred: No space left on device"));
    // files that may not grow, from the first byte on to where they need not
    std::string text;
    for (int i = 0; i < 300; ++i) text += std::to_string(i * 7 % 300) + "\n";
    struct rlimit before {};
    ASSERT_EQ(0, getrlimit(RLIMIT_FSIZE, &before));
    const auto handler = signal(SIGXFSZ, SIG_IGN);
    int failures = 0;
    for (rlim_t most = 0; most < 1400; most += 100) {
        const struct rlimit limit { most, before.rlim_max };
        ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &limit));
        const int result = sort(text, {40, UINT64_MAX, 3, 128, 0, false});
        ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &before));
        if (result != 0) ++failures;
        else EXPECT_EQ(text.size(), sorted.size());
    }
    signal(SIGXFSZ, handler);
    EXPECT_THAT(failures, testing::AllOf(testing::Gt(2), testing::Lt(14)));
}

TEST_F(Sort, KeepsItsFilesToItself) {
    vextest::writeFile(dir / "victim", "precious");
    ASSERT_EQ(0, symlink((dir / "victim").c_str(), name(0).c_str()));
    ASSERT_EQ(0, symlink((dir / "absent").c_str(), name(1).c_str()));
    ASSERT_EQ(0, sort("b x\na y\n", {1, UINT64_MAX, 2, 4096, BINARY_SORT_KEEP | BINARY_SORT_NUMBERS, false}));
    EXPECT_EQ("a y\nb x\n", sorted);
    EXPECT_EQ("precious", vextest::readFile(dir / "victim"));
    EXPECT_EQ(5u, dir.list().size());
    struct stat info {};
    ASSERT_EQ(0, lstat(name(3).c_str(), &info));
    EXPECT_EQ(S_IFREG | 0600U, info.st_mode);
    EXPECT_EQ(std::string("\2\0\0\0\0\0\0\0a y\n", 12), vextest::readFile(name(3)));
    for (int i = 0; i < 4; ++i) EXPECT_EQ(0, unlink(name(i).c_str()));
    EXPECT_EQ(0, unlink((dir / "victim").c_str()));
}

TEST_F(Sort, TellsFailuresByLevelAndQuietlyByPlace) {
    const std::string text = "b\na\nd\nc\ne\n";
    const auto failing = [&](const char *source, size_t fail_at, Limits limits) {
        LogCapture log;
        lines = Lines();
        lines.fail_at = fail_at;
        EXPECT_EQ(-1, sort(source, limits));
        std::vector<std::string> found = log.lines();
        for (std::string &line : found)  // the place is nobody's promise
            if (const size_t at = line.find("(line "); at != std::string::npos)
                line.erase(at + 6, line.find(')') - at - 6);
        return found;
    };
    EXPECT_THAT(failing("b\n!\n", 0, {}), ElementsAre("71 BinarySortFp: Could not read object: Protocol error"));
    EXPECT_EQ(EPROTO, error);
    EXPECT_THAT(
        failing(text.c_str(), 6, {}), ElementsAre("14 _binarySortObjectWrite: Could not write object: No space left "
                                                  "on device",
                                          "14 BinarySortFp: _binarySortObjectWrite failed"));
    EXPECT_EQ(EFAULT, error);
    EXPECT_THAT(failing(text.c_str(), 6, {.flags = BINARY_SORT_QUIET}),
        ElementsAre("14 _binarySortObjectWrite: Failed for unknown reason (line ): No space left on device",
            "14 BinarySortFp: _binarySortObjectWrite failed"));
    EXPECT_THAT(failing("a\n", 4, {.flags = BINARY_SORT_NUMBERS}),
        ElementsAre("71 _binarySortObjectRead: Could not read "
                    "object: Protocol error",
            "71 _binarySortFilesMerge: _binarySortObjectRead failed"));
    EXPECT_THAT(failing(text.c_str(), 5, {}), ElementsAre("5 BinarySortFp: compare failed"));
    std::string many;
    for (int i = 0; i < 130; ++i) many += "x\n";
    EXPECT_THAT(failing(many.c_str(), 0, {1, 0, 129, 0, 0, false}),
        ElementsAre("105 BinarySortFp: max_files=128 exceeded. "
                    "Please try a lower number of num_files_to_merge."));
    LogCapture log(LogCapture::kAll);
    lines = Lines();
    EXPECT_EQ(0, sort(many, {1, 0, 2, 0, 0, false}));
    EXPECT_THAT(log.lines(VEX_LOG_INFO),
        ElementsAre("Sorting tlog files: starting pass 1.", "Sorting tlog files: starting final merge step."));
    EXPECT_THAT(log.lines(VEX_LOG_TRACE), testing::IsSupersetOf({"BinarySortFp: i=0", "Merging files:", name(0).c_str(),
                                              "BinarySortFp: num_objects=1, objects_size=2"}));
    log.clear();
    EXPECT_EQ(-1, BinarySortFp(nullptr, nullptr, nullptr));
    for (const uint64_t merge : {1, 2})
        EXPECT_EQ(nullptr, BinarySortCtxConstruct(lines.read, lines.compare, nullptr, lines.write, lines.release,
                               nullptr, nullptr, 2 - merge, 1, "/tmp", merge, 0, 0));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(3u, log.lines().size());
    EXPECT_EQ("22 BinarySortFp: Required input was null: binary_sort_ctx ((nil)), dst_fp ((nil))", log.lines()[0]);
    ASSERT_EQ(0, rmdir(dir.path().c_str()));
    log.clear();
    lines.fail_at = 0;
    FILE *const out = tmpfile();
    BinarySortCtx *ctx = BinarySortCtxConstruct(lines.read, lines.compare, nullptr, lines.write, lines.release, nullptr,
        &lines, 9, 9, dir.path().c_str(), 2, 0, 0);
    FILE *const in = fmemopen(many.data(), 2, "r");
    EXPECT_EQ(-1, BinarySortFp(ctx, in, out));
    EXPECT_THAT(log.lines(),
        ElementsAre("2 _binarySortFileOpen: Could not open temporary file " + name(0) + ": No such file or directory"));
    BinarySortCtxDestruct(&ctx);
    (void)fclose(in);
    (void)fclose(out);
    ASSERT_EQ(0, mkdir(dir.path().c_str(), 0700));
}

}  // namespace
