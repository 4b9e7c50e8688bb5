// Counted memory.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <thread>

#include <vex/alloc.h>

#include "support/faults.h"
#include "support/log_capture.h"

namespace {

using testing::ElementsAre;

class Counted : public testing::Test {
protected:
    Counted() { set("1"); }
    ~Counted() override { set("0"); }
    static std::string set(const char *memstat) {
        setenv("MEMSTAT", memstat, 1);
        XAllocInit();
        return report();
    }
    /// What slot 0 says it holds; "" when it does not count.
    static std::string report() {
        vextest::LogCapture log;
        XAllocReport();
        const auto lines = log.lines(VEX_LOG_INFO);
        return lines.empty() ? "" : lines.at(0);
    }
};

TEST_F(Counted, CountsEachBlockOnceFromBirthToDeath) {
    constexpr size_t kMegabyte = 1 << 20;
    EXPECT_EQ("Memory usage of libcr: 0.00 MB", report());
    auto *p = static_cast<char *>(XMalloc(0, kMegabyte));
    p[kMegabyte - 1] = 'x';
    EXPECT_EQ("Memory usage of libcr: 1.00 MB", report());
    p = static_cast<char *>(XRealloc(0, p, 3 * kMegabyte));
    EXPECT_EQ('x', p[kMegabyte - 1]);
    EXPECT_EQ("Memory usage of libcr: 3.00 MB", report());
    auto *zeros =
        static_cast<char *>(XCalloc(0x10000, kMegabyte, 2));  // slot 0: the low 16 bits count
    EXPECT_EQ(0, zeros[2 * kMegabyte - 1]);
    EXPECT_EQ("Memory usage of libcr: 5.00 MB", report());
    for (const char *call : {"malloc", "realloc"}) {
        const vextest::FaultScope fault(call, 1, ENOMEM);
        EXPECT_EQ(nullptr, *call == 'm' ? XMalloc(0, kMegabyte) : XRealloc(0, p, 1));
    }
    for (void *none : {XMalloc(0, SIZE_MAX), XRealloc(0, p, SIZE_MAX - 7),
                       XCalloc(0, SIZE_MAX / 2, 3), XCalloc(0, SIZE_MAX, 1)}) {
        EXPECT_EQ(nullptr, none);
        EXPECT_EQ(ENOMEM, errno);
    }
    EXPECT_EQ("Memory usage of libcr: 5.00 MB", report());
    XFree(0, p);
    XFree(0, zeros);
    XFree(0, nullptr);
    EXPECT_EQ("Memory usage of libcr: 0.00 MB", report());
    void *fresh = XRealloc(0, nullptr, kMegabyte);
    EXPECT_EQ("Memory usage of libcr: 1.00 MB", report());
    XFree(0, fresh);
    void *beyond = XMalloc(16, kMegabyte);  // a slot that there is not never counts
    XFree(16, XRealloc(16, beyond, 10));
    XFree(99, XCalloc(99, 3, 5));
    EXPECT_EQ("Memory usage of libcr: 0.00 MB", report());
}

TEST_F(Counted, IsSwitchedByANumberInTheEnvironment) {
    for (const char *off : {"0", "0x1", "yes"}) EXPECT_EQ("", set(off)) << off;
    for (const char *on : {"-1", "1x"}) EXPECT_NE("", set(on)) << on;
}

TEST(FastAtomic, SumsWhatManyThreadsAdd) {
    VexFastAtomic counter;
    counter -= 5;
    EXPECT_EQ(-5, counter.GetValue());
    std::thread threads[4];
    for (auto &thread : threads)
        thread = std::thread([&] {
            for (int i = 0; i < 10000; ++i) ((counter += 3) -= 2) += 0;
        });
    for (auto &thread : threads) thread.join();
    EXPECT_EQ(39995, counter.GetValue());
}

TEST(Allocator, ReportsWhatItHoldsUnderItsName) {
    vextest::LogCapture log;
    VexAllocator plain("a name that is longer than thirty-one characters", true),
        store("datastore", true);
    void *p = plain.Alloc(1 << 20);
    plain.Report();
    plain.Free(p, 3 << 20);  // more than was taken: shown as nothing
    plain.Free(nullptr, 1);
    plain.Report();
    datastore_malloc_total_size = 2 << 20;
    datastore_thread_total_size = 1 << 19;
    store.Report();
    datastore_malloc_total_size = datastore_thread_total_size = 0;
    VexAllocator *silent = VexAllocator::GetDefaultAllocator();
    silent->Free(silent->Alloc(10), 10);
    silent->Report();
    EXPECT_THAT(log.lines(VEX_LOG_INFO),
                ElementsAre("Memory usage of a name that is longer than thir: 1.00 MB",
                            "Memory usage of a name that is longer than thir: 0.00 MB",
                            "Memory usage of datastore: 2.50 MB"));
    const vextest::FaultScope fault("new", 1, ENOMEM);
    EXPECT_THROW(silent->Alloc(10), std::bad_alloc);
}

}  // namespace
