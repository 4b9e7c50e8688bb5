#include "support/test.h"

namespace {

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

bool byFirst(const std::string &a, const std::string &b) { return a[0] < b[0]; }
bool sameFirst(const std::string &a, const std::string &b) { return a[0] == b[0]; }

TEST(BinarySortMergeSort, SortsElementsOfEverySizeStablyAndLosesNone) {
    std::mt19937 random(static_cast<unsigned>(testSeed()));
    for (const size_t size : {1, 3, 4, 8, 12, 16, 17, 40, 300})
        for (const size_t count : {0, 1, 2, 8, 9, 17, 100, 1000}) {
            SCOPED_TRACE(testing::Message() << count << " elements of " << size);
            std::string input(size * count, '\0'), scratch = input;
            for (char &c : input) c = static_cast<char>(random() % 8);
            const auto sort = [&](std::string array, ByFirstByte *order) {
                try {
                    BinarySortMergeSort(array.data(), count, size, order->compare, order, scratch.data());
                } catch (const std::runtime_error &) {}
                return split(array, size);
            };
            auto expected = split(input, size);
            std::stable_sort(expected.begin(), expected.end(), byFirst);
            ByFirstByte order;
            EXPECT_EQ(expected, sort(input, &order));
            // a comparison that throws or contradicts itself costs the order, never an element
            std::sort(expected.begin(), expected.end());
            for (uint64_t fail_at = 0; fail_at <= order.calls; fail_at += order.calls / 20 + 1) {
                ByFirstByte bad{0, fail_at, fail_at == 0};
                auto elements = sort(input, &bad);
                std::sort(elements.begin(), elements.end());
                ASSERT_EQ(expected, elements) << fail_at;
            }
        }
}

enum Mode { kPlain, kNewestFirst, kKeepFirst, kKeepLast };

/// Objects are lines, their key the first character; "#" is skipped, "!" an error.
struct Lines {
    std::set<const void *> live;
    size_t calls = 0, fail_at = 0;
    Mode mode = kPlain;

    static Lines *of(void *user) { return static_cast<Lines *>(user); }
    static const std::string &line(const void *object) { return *static_cast<const std::string *>(object); }
    static bool fails(void *user) { return ++of(user)->calls == of(user)->fail_at; }
    static void *read(void *user, FILE *stream, uint64_t *size) {
        if (fails(user)) return errno = EPROTO, nullptr;
        char text[64];
        if (fgets(text, sizeof text, stream) == nullptr) return errno = ENOENT, nullptr;
        if (text[0] == '#' || text[0] == '!') return errno = text[0] == '#' ? 0 : EPROTO, nullptr;
        *size = strlen(text);
        return const_cast<void *>(*of(user)->live.insert(new std::string(text)).first);
    }
    static int compare(void *user, const void *a, uint64_t numberA, const void *b, uint64_t numberB) {
        if (fails(user)) throw std::runtime_error("compare failed");
        const int order = line(a)[0] - line(b)[0];
        return order != 0 || of(user)->mode != kNewestFirst ? order : numberA < numberB ? 1 : -1;
    }
    static int drop(void *user, const void *, uint64_t fresh, const void *, uint64_t present) {
        return (fresh > present) == (of(user)->mode == kKeepLast) ? 1 : -1;
    }
    static uint64_t write(void *user, void *object, FILE *stream, uint64_t offset) {
        EXPECT_EQ(ftello(stream), static_cast<off_t>(offset));
        if (fails(user)) return errno = ENOSPC, UINT64_MAX;
        return fwrite(line(object).data(), line(object).size(), 1, stream) == 1 ? line(object).size() : UINT64_MAX;
    }
    static void release(void *user, void *object) {
        EXPECT_EQ(1u, of(user)->live.erase(object));
        delete &line(object);
    }
};

struct Limits {
    uint64_t objects = 3, bytes = UINT64_MAX, merge = 2, buffer = UINT64_MAX;
    uint32_t flags = 0;
};

struct Sort : FolderTest {
    /// 0 or -1. Whatever happens every object is freed and no file is left.
    int sort(const std::string &text, const Limits &limits, const char *destination = nullptr) {
        char *buffer = nullptr;
        size_t size = 0;
        vex::UniqueFile in(text.empty() ? tmpfile() : fmemopen(const_cast<char *>(text.data()), text.size(), "r"));
        vex::UniqueFile out(destination ? fopen(destination, "w") : open_memstream(&buffer, &size));
        BinarySortCtx *ctx = BinarySortCtxConstruct(lines.read, lines.compare,
            lines.mode >= kKeepFirst ? lines.drop : nullptr, lines.write, lines.release, nullptr, &lines,
            limits.objects, limits.bytes, dir.path().c_str(), limits.merge, limits.buffer, limits.flags);
        const int result = ctx == nullptr ? -1 : BinarySortFp(ctx, in.get(), out.get());
        error = errno;
        const FaultPause pause;
        BinarySortCtxDestruct(&ctx);
        (void)(in.close() + out.close());
        sorted.assign(buffer ? buffer : "", size);
        free(buffer);
        EXPECT_TRUE(lines.live.empty());
        if ((limits.flags & BINARY_SORT_KEEP) == 0) { EXPECT_TRUE(dir.list().empty()); }
        return result;
    }
    std::string name(int number) const {
        return dir / ("sort-" + std::to_string(getpid()) + "-" + std::to_string(number) + ".tmp");
    }
    Lines lines;
    std::string sorted;
    int error = 0;
};

TEST_F(Sort, AgreesWithAStableSortWhateverTheLimits) {
    std::mt19937 random(static_cast<unsigned>(testSeed()));
    const auto any = [&](std::initializer_list<uint64_t> values) { return values.begin()[random() % values.size()]; };
    for (int round = 0; round < 200; ++round) {
        lines.mode = static_cast<Mode>(round % 4);
        const Limits limits{any({1, 2, 7, 1000}), any({0, 40, UINT64_MAX}), any({2, 3, 16, 128}),
            any({0, 1, 4096, UINT64_MAX}), lines.mode == kPlain ? 0U : uint32_t{BINARY_SORT_NUMBERS}};
        std::vector<std::string> expected;
        std::string text, joined;
        for (size_t i = random() % 200; i > 0; --i) {
            expected.push_back(static_cast<char>('0' + random() % 60) + std::to_string(i) + "\n");
            text += expected.back() + (random() % 8 == 0 ? "# skipped\n" : "");
        }
        if (lines.mode == kNewestFirst || lines.mode == kKeepLast) std::reverse(expected.begin(), expected.end());
        std::stable_sort(expected.begin(), expected.end(), byFirst);
        const auto end =
            lines.mode < kKeepFirst ? expected.end() : std::unique(expected.begin(), expected.end(), sameFirst);
        expected.erase(end, expected.end());
        for (const std::string &line : expected) joined += line;
        ASSERT_EQ(0, sort(text, limits));
        ASSERT_EQ(joined, sorted) << round << ": " << limits.objects << " objects, " << limits.merge << " files";
    }
}

TEST_F(Sort, FailsWholeWhenAnyCallOrCallbackFails) {
    const std::string text = "5a\n3b\n#-\n5c\n1d\n3e\n2f\n9g\n5h\n0i\n4j\n",
                      whole = "0i\n1d\n2f\n3b\n3e\n4j\n5a\n5c\n5h\n9g\n";
    for (const uint32_t flags : {0U, 4U}) {
        const auto check = [&] {
            const bool good = sort(text, {3, UINT64_MAX, 2, 64, flags}) == 0;
            EXPECT_TRUE((good ? sorted == whole : error != 0) && good == log.take().empty());
            return good;
        };
        EXPECT_LT(100u, forEachFault({"open", "fdopen", "fcntl", "lseek", "fread", "fwrite", "fflush", "fclose",
                                         "malloc", "calloc", "strdup", "unlink"},
                            EIO, [&](const FaultScope &scope) { EXPECT_TRUE(check() || scope.fired()); }));
        do {
            lines.calls = 0;
            ++lines.fail_at;
            const bool good = check();
            EXPECT_EQ(good, lines.calls < lines.fail_at) << "callback " << lines.fail_at;
        } while (lines.calls >= lines.fail_at);
        EXPECT_LT(80u, std::exchange(lines.fail_at, 0));
    }
    EXPECT_EQ(-1, sort("b\na\n", {}, "/dev/full"));
    EXPECT_EQ("28 BinarySortFp: Unknown error occurred: No space left on device", log.text());
}

TEST_F(Sort, KeepsItsFilesToItself) {
    writeFile(dir / "victim", "precious");
    ASSERT_EQ(0, symlink((dir / "victim").c_str(), name(0).c_str()) + symlink("absent", name(1).c_str()));
    ASSERT_EQ(0, sort("b x\na y\n", {1, UINT64_MAX, 2, 4096, BINARY_SORT_KEEP | BINARY_SORT_NUMBERS}));
    EXPECT_EQ("a y\nb x\nprecious", sorted + readFile(dir / "victim"));
    EXPECT_EQ(5u, dir.list().size());
    struct stat info {};
    ASSERT_EQ(0, lstat(name(3).c_str(), &info));
    EXPECT_EQ(S_IFREG | 0600U, info.st_mode);
    EXPECT_EQ(std::string("\2\0\0\0\0\0\0\0a y\n", 12), readFile(name(3)));
}

TEST_F(Sort, TellsFailuresByLevelAndQuietlyByPlace) {
    std::string many;
    for (int i = 0; i < 130; ++i) many += "x\n";
    // source ("x" for 130 lines); which call of a callback fails; objects, files to merge, flags; errno; log
    for (const auto &row : table(7,
             "b\n!\n|0|3|2|0|71|71 BinarySortFp: Could not read object: Protocol error|"
             "b\na\n|5|3|2|0|14|14 _binarySortObjectWrite: Could not write object: No space left on device\n"
             "14 BinarySortFp: _binarySortObjectWrite failed|"
             "b\na\n|5|3|2|1|14|14 _binarySortObjectWrite: Failed for unknown reason .line [0-9]+.: No space left on "
             "device\n14 BinarySortFp: _binarySortObjectWrite failed|"
             "a\n|4|3|2|4|71|71 _binarySortObjectRead: Could not read object: Protocol error\n"
             "71 _binarySortFilesMerge: _binarySortObjectRead failed|"
             "b\na\n|3|2|2|0|5|5 BinarySortFp: compare failed|"
             "x|0|1|129|0|105|105 BinarySortFp: max_files=128 exceeded. Please try a lower number of "
             "num_files_to_merge.|"
             "a|0|3|1|0|22|22 BinarySortCtxConstruct: invalid parameter: num_files_to_merge=1, max_objects=3|"
             "a|0|0|2|0|22|22 BinarySortCtxConstruct: invalid parameter: num_files_to_merge=2, max_objects=0|")) {
        SCOPED_TRACE(row[6]);
        lines.calls = 0;
        lines.fail_at = std::stoul(row[1]);
        EXPECT_EQ(-1, sort(row[0] == "x" ? many : row[0], {std::stoul(row[2]), UINT64_MAX, std::stoul(row[3]), 0,
                                                              static_cast<uint32_t>(std::stoul(row[4]))}));
        EXPECT_EQ(std::stoi(row[5]), error);
        EXPECT_THAT(log.take(), MatchesRegex(row[6]));
    }
    const LogCapture all(LogCapture::kAll);
    lines.fail_at = 0;
    EXPECT_EQ(0, sort(many, {1, 0, 2, 0, 0}));
    EXPECT_EQ("Sorting tlog files: starting final merge step.", all.lines(VEX_LOG_INFO).at(1));
    EXPECT_THAT(all.lines(VEX_LOG_TRACE), testing::IsSupersetOf({"BinarySortFp: i=0", "Merging files:", name(0).c_str(),
                                              "BinarySortFp: num_objects=1, objects_size=2"}));
    EXPECT_FAILS_WITH("22 BinarySortFp: Required input was null: binary_sort_ctx ((nil)), dst_fp ((nil))", -1,
        BinarySortFp(nullptr, nullptr, nullptr));
}

}  // namespace
