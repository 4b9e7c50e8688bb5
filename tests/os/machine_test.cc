// What the system tells about itself, against the system's other ways to tell it and against
// made-up control groups and mounts.
#include <pty.h>
#include <sys/statvfs.h>
#include <sys/sysinfo.h>
#include <sys/sysmacros.h>

#include "os/cgroup.h"
#include "os/mount_line.h"
#include "support/test.h"

TEST(Machine, MemoryAndProcessorsAreThoseThatTheSystemKnows) {
    struct sysinfo system {};
    ASSERT_EQ(0, sysinfo(&system));
    VexMemoryInfo memory;
    ASSERT_EQ(0, VexGetMemoryInfo(&memory));
    EXPECT_EQ(system.totalram * system.mem_unit, memory.total);
    EXPECT_EQ(system.totalswap * system.mem_unit, memory.swap_total);
    EXPECT_TRUE(memory.available > 0 && memory.available <= memory.total);
    EXPECT_TRUE(memory.process_rss > 1 << 20 && memory.process_rss < memory.total);
    VexProcessorInfo processors;
    ASSERT_EQ(0, VexGetProcessorInfo(&processors));
    EXPECT_EQ(static_cast<uint32_t>(get_nprocs()), processors.online);
}

TEST(Cgroup, TheLowestLimitOnTheWayUpHoldsInBothVersions) {
    using Files = std::vector<std::pair<const char *, const char *>>;  // below /sys/fs/cgroup/
    const std::tuple<const char *, Files, uint64_t, double> rows[] = {
        {"0::/a/b\n",
            {{"a/b/memory.max", "max\n"}, {"a/memory.max", "4096\n"}, {"memory.max", "8192\n"},
                {"a/b/cpu.max", "max 100000\n"}, {"a/cpu.max", "150000 100000\n"}},
            4096, 1.5},
        {"0::/\n", {{"memory.max", "12288"}, {"cpu.max", "50000 100000"}}, 12288, 0.5},
        {"5:cpu,cpuacct:/x\n4:memory:/docker/y\n1:name=systemd:/\n",
            {{"memory/memory.limit_in_bytes", "1048576\n"}, {"cpu/x/cpu.cfs_quota_us", "200000\n"},
                {"cpu/x/cpu.cfs_period_us", "100000\n"}, {"cpu/cpu.cfs_quota_us", "-1\n"},
                {"cpu/cpu.cfs_period_us", "100000\n"}},
            1048576, 2},
        {"4:memory:/\n", {{"memory/memory.limit_in_bytes", "9223372036854771712\n"}}, UINT64_MAX, 0},
        {"nonsense\n4:memory\n", {}, UINT64_MAX, 0},
    };
    for (const auto &[groups, files, memory, processors] : rows) {
        TempDir root;
        ASSERT_EQ(0, CreateTreeA((root / "proc/self").c_str(), 0));
        writeFile(root / "proc/self/cgroup", groups);
        for (const auto &[name, content] : files) {
            const std::string path = root / "sys/fs/cgroup/" + name;
            ASSERT_EQ(0, CreateTreeA(path.substr(0, path.rfind('/')).c_str(), 0));
            writeFile(path, content);
        }
        const auto limits = vex::os::readCgroupLimits(root.path());
        EXPECT_EQ(memory, limits.memory) << groups;
        EXPECT_EQ(processors, limits.processors) << groups;
    }
}

TEST(Mounts, AreFoundByTheLongestDirectoryAboveAPath) {
    for (const auto &row : table(2,
             "36 35 98:0 /mnt1 /a\\040b rw,noatime master:1 shared:2 - ext3 /dev/r\\134oot rw,errors=continue|"
             "/dev/r\\oot /a b ext3 rw,noatime,rw,errors=continue|"
             "36 35 0:5 / /p rw - proc proc rw|proc /p proc rw,rw|36 35 0:5 / /p rw - proc||junk||")) {
        VexMountInfo mount{};
        const bool good = vex::os::parseMountLine(row[0], &mount);
        const std::string place = mount.device + std::string(" ") + mount.directory;
        EXPECT_EQ(row[1], good ? place + " " + mount.type + " " + mount.options : "");
    }
    VexMountInfo proc, root, here;
    ASSERT_EQ(0, VexGetMountInfo("/proc/self/../stat", &proc));
    EXPECT_STREQ("proc", proc.type);
    EXPECT_STREQ("/proc", proc.directory);
    ASSERT_EQ(0, VexGetMountInfo("/no-such-file", &root));
    EXPECT_STREQ("/", root.directory);
    TempDir dir;
    struct stat status {};
    ASSERT_EQ(0, stat(dir.path().c_str(), &status));
    ASSERT_EQ(0, VexGetMountInfo(dir.path().c_str(), &here));
    EXPECT_EQ(status.st_dev, here.dev);
    vexList *const list = VexMountListCreate();
    bool listed = false;
    for (void *mount = vexListFirst(list); mount != nullptr; mount = vexListNext(list))
        listed = listed || static_cast<VexMountInfo *>(mount)->dev == proc.dev;
    EXPECT_TRUE(listed);
    VexMountListDestroy(list);
    VexFsInfo room;
    struct statvfs fs {};
    ASSERT_EQ(0, statvfs(dir.path().c_str(), &fs));
    ASSERT_EQ(0, VexGetFsInfo(dir.path().c_str(), &room));
    EXPECT_EQ(fs.f_blocks * fs.f_frsize, room.total);
    EXPECT_TRUE(room.available <= room.free && room.free <= room.total && room.read_only == 0);
    LogCapture log;
    EXPECT_FAILS(ENOENT, -1, VexGetFsInfo("/no-such-file", &room));
}

TEST(Summary, HasOneLinePerFactAndReportsAFailedWrite) {
    const vex::UniqueFile full(fopen("/dev/full", "w"));
    testing::internal::CaptureStdout();
    EXPECT_EQ(0, OSTest(stdout));
    std::string names = "System|Release|Machine|Processors|Memory|Swap|Uptime|Open files|Core size|Locked memory";
    EXPECT_THAT(testing::internal::GetCapturedStdout(), MatchesRegex("((" + names + ") *: [^\n]+\n){10}"));
    EXPECT_FAILS_WITH("28 OSTest: could not write: No space left on device", -1, OSTest(full.get()));
    EXPECT_STREQ("os_test", VexProcessName());
}

TEST(Terminal, TellsItsSizeOrTheEnvironmentDoes) {
    int ours, theirs, rows = 0, columns = 0;
    winsize size = {40, 132, 0, 0};
    ASSERT_EQ(0, openpty(&ours, &theirs, nullptr, nullptr, &size));
    EXPECT_EQ(0, VexGetTerminalSize(theirs, &rows, &columns));
    EXPECT_EQ(std::pair(40, 132), std::pair(rows, columns));
    close(ours), close(theirs);
    setenv("LINES", "7", 1);
    setenv("COLUMNS", "-3", 1);
    EXPECT_EQ(1, VexGetTerminalSize(-1, &rows, &columns));
    EXPECT_EQ(std::pair(7, 80), std::pair(rows, columns));
    EXPECT_STREQ("7", vex_getenv("LINES"));
    EXPECT_TRUE(vex_getenv("") == nullptr && vex_getenv(nullptr) == nullptr);
    unsetenv("LINES"), unsetenv("COLUMNS");
}

TEST(Markers, AreReadAgainAtARefreshOnly) {
    const bool allowed = inNamespace(CLONE_NEWNS, [] {
        RefreshMarkerFiles();
        EXPECT_EQ(0, VexIsQlsr() + VexIsCloudDeployment() + VexMarkerExists("qlsr"));
        CreateTreeA("/usr/lumen/zqde", 0);
        for (const char *name : {"qlsr", "qlsr-cloud"}) writeFile(std::string("/usr/lumen/zqde/") + name, "");
        EXPECT_TRUE(VexMarkerExists("qlsr") == 1 && VexIsQlsr() == 0);
        RefreshMarkerFiles();
        EXPECT_EQ(2, VexIsQlsr() + VexIsCloudDeployment());
        EXPECT_EQ(0, VexIsAppliance() + VexIsContainer());
        EXPECT_FAILS_WITH("22 VexMarkerExists: invalid marker name ../zqde/qlsr", 0, VexMarkerExists("../zqde/qlsr"));
    });
    RefreshMarkerFiles();
    if (!allowed) GTEST_SKIP() << "no right to a mount namespace";
}
