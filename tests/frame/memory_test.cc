// Counted memory.

#include "support/test.h"

/// Reads MEMSTAT anew and gives what slot 0 says it holds; "" when it does not count.
static std::string report(const char *memstat = nullptr) {
    if (memstat != nullptr) {
        setenv("MEMSTAT", memstat, 1);
        XAllocInit();
    }
    LogCapture log;
    XAllocReport();
    const auto lines = log.lines(VEX_LOG_INFO);
    return lines.empty() ? "" : lines.at(0);
}

static std::string holds(const char *megabytes) { return std::string("Memory usage of libcr: ") + megabytes + " MB"; }

TEST(CountedMemory, CountsEachBlockOnceFromBirthToDeath) {
    constexpr size_t kMegabyte = 1 << 20;
    EXPECT_EQ(holds("0.00"), report("1"));
    auto *p = static_cast<char *>(XMalloc(0, kMegabyte));
    p[kMegabyte - 1] = 'x';
    EXPECT_EQ(holds("1.00"), report());
    p = static_cast<char *>(XRealloc(0, p, 3 * kMegabyte));
    EXPECT_EQ('x', p[kMegabyte - 1]);
    EXPECT_EQ(holds("3.00"), report());
    auto *zeros = static_cast<char *>(XCalloc(0x10000, kMegabyte, 2));  // slot 0: the low 16 bits count
    EXPECT_EQ(0, zeros[2 * kMegabyte - 1]);
    EXPECT_EQ(holds("5.00"), report());
    for (const char *call : {"malloc", "realloc"}) {
        const FaultScope fault(call, 1, ENOMEM);
        EXPECT_EQ(nullptr, *call == 'm' ? XMalloc(0, kMegabyte) : XRealloc(0, p, 1));
    }
    for (void *none : {XMalloc(0, SIZE_MAX), XRealloc(0, p, SIZE_MAX - 7), XCalloc(0, SIZE_MAX / 2, 3)}) {
        EXPECT_EQ(nullptr, none);
        EXPECT_EQ(ENOMEM, errno);
    }
    XFree(16, XRealloc(16, XMalloc(16, kMegabyte), 10));  // a slot that there is not never counts
    EXPECT_EQ(holds("5.00"), report());
    for (void *block : {static_cast<void *>(p), static_cast<void *>(zeros), XRealloc(0, nullptr, 10)}) XFree(0, block);
    XFree(0, nullptr);
    EXPECT_EQ(holds("0.00"), report());
    for (const char *on : {"-1", "1x"}) EXPECT_NE("", report(on)) << on;
    for (const char *off : {"0x1", "yes", "0"}) EXPECT_EQ("", report(off)) << off;
}

TEST(FastAtomic, SumsWhatManyThreadsAdd) {
    VexFastAtomic counter;
    counter -= 5;
    EXPECT_EQ(-5, counter.GetValue());
    inThreads(3, [&](int) {
        for (int i = 0; i < 10000; ++i) ((counter += 3) -= 2) += 0;
    });
    EXPECT_EQ(29995, counter.GetValue());
}

TEST(Allocator, ReportsWhatItHoldsUnderItsName) {
    LogCapture log;
    VexAllocator plain("a name that is longer than thirty-one characters", true), store("datastore", true);
    void *p = plain.Alloc(1 << 20);
    plain.Report();
    plain.Free(p, 3 << 20);  // more than was taken: shown as nothing
    plain.Report();
    datastore_malloc_total_size = 2 << 20;
    datastore_thread_total_size = 1 << 19;
    store.Report();
    datastore_malloc_total_size = datastore_thread_total_size = 0;
    VexAllocator::GetDefaultAllocator()->Report();
    const std::string name = "Memory usage of a name that is longer than thir: ";
    EXPECT_THAT(
        log.lines(VEX_LOG_INFO), ElementsAre(name + "1.00 MB", name + "0.00 MB", "Memory usage of datastore: 2.50 MB"));
}
