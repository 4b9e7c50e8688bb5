// Real processes: daemons that are started, asked, killed and started again; locks between them; a
// service manager's socket.
#include <poll.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "support/test.h"

static pid_t holder(const std::string &path) {
    pid_t pid = 0;
    return VexPidFileRead(path.c_str(), &pid) == 1 ? pid : 0;
}

using Daemon = FolderTest;
using PidFile = FolderTest;
using LockFile = FolderTest;
using ServiceUser = FolderTest;

TEST_F(Daemon, ItsStarterExitsAsItSays) {
    // a service manager's socket
    const vex::UniqueFd manager(socket(AF_UNIX, SOCK_DGRAM, 0));
    sockaddr_un address{AF_UNIX, ""};
    (dir / "notify").copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(0, bind(manager.get(), reinterpret_cast<sockaddr *>(&address), sizeof address));
    setenv("NOTIFY_SOCKET", address.sun_path, 1);
    const auto heard = [&] {
        pollfd ready = {manager.get(), POLLIN, 0};
        char text[256];
        const ssize_t n = poll(&ready, 1, 5000) > 0 ? recv(manager.get(), text, sizeof text, 0) : 0;
        return std::string(text, static_cast<size_t>(n));
    };
    const pid_t session = getsid(0);
    const auto start = [&](int status) {
        EXPECT_TRUE(soon([&] { return holder(path) == 0; })) << "the one before outlives its starter";
        return inChild([&] {
            if (VexDaemonStart(path.c_str(), 0) != 0) _exit(99);  // the starter has its own
            struct stat null {
            }, input{};
            const bool as_promised = std::filesystem::current_path() == "/" && umask(027) == 027 &&
                                     getsid(0) != getpid() && getsid(0) != session && stat("/dev/null", &null) == 0 &&
                                     fstat(0, &input) == 0 && null.st_rdev == input.st_rdev;
            VexDaemonReady(as_promised ? status : 77);
            while (status == 0) pause();
            return 0;
        });
    };
    ASSERT_EQ(0, start(0));
    const pid_t daemon = holder(path);
    EXPECT_EQ("READY=1\nMAINPID=" + std::to_string(daemon) + "\n", heard());
    kill(daemon, SIGKILL);
    EXPECT_EQ(3, start(3)) << "it could not be brought up";
    EXPECT_EQ("STATUS=start-up failed with status 3\n", heard());
    EXPECT_EQ(255, start(256)) << "no success";
    EXPECT_EQ("STATUS=start-up failed with status 256\n", heard());
    EXPECT_EQ(128 + SIGKILL, inChild([&] {
        const pid_t starter = getpid();
        if (VexDaemonStart(nullptr, 0) != 0) _exit(99);
        kill(starter, SIGKILL);
        (void)soon([&] { return kill(starter, 0) != 0; });
        return VexDaemonReady(0);
    }));
    EXPECT_THAT(heard(), StartsWith("READY=1")) << "a daemon outlives its starter";
    unsetenv("NOTIFY_SOCKET");
}

TEST_F(PidFile, TheLockAndNotTheNumberTellsWhoLives) {
    writeFile(path, "1\n");  // a living process, but not one that holds it
    pid_t pid = 7;
    EXPECT_EQ(0, VexPidFileRead((dir / "absent").c_str(), &pid));
    EXPECT_EQ(0, VexPidFileRead(path.c_str(), &pid));
    EXPECT_EQ(0, pid);
    int fd = VexPidFileCreate(path.c_str());
    ASSERT_LE(0, fd);
    EXPECT_EQ(getpid(), holder(path));
    const std::string link = dir / "link";
    ASSERT_EQ(0, symlink("file", link.c_str()));
    EXPECT_FAILS_WITH("17 VexPidFileCreate: already running with pid " + std::to_string(getpid()), -1,
        VexPidFileCreate(path.c_str()));
    EXPECT_FAILS_WITH("40 VexPidFileCreate: could not open PID file " + link + ": Too many levels of symbolic links",
        -1, VexPidFileCreate(link.c_str()));
    ASSERT_EQ(0, rename(path.c_str(), (dir / "moved").c_str()));
    writeFile(path, "another's");
    EXPECT_EQ(0, VexPidFileRemove(path.c_str(), fd));
    EXPECT_EQ("another's", readFile(path));

    const auto winners = inChildren(8, [&] {
        const int won = VexPidFileCreate(path.c_str());
        if (won >= 0) std::this_thread::sleep_for(std::chrono::milliseconds(500));
        return won >= 0 && VexPidFileRemove(path.c_str(), won) == 0 ? 1 : 0;
    });
    EXPECT_EQ(1, std::count(winners.begin(), winners.end(), 1)) << "of many that start at once";
}

TEST_F(LockFile, ExcludesThreadsAndProcessesAndWaitsAsLongAsAsked) {
    int fd = VexLockFileAcquire(path.c_str(), 0);
    ASSERT_LE(0, fd);
    EXPECT_FAILS(EAGAIN, -1, VexLockFileAcquire(path.c_str(), 0));  // in the same process
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(EAGAIN, inChild([&] { return VexLockFileAcquire(path.c_str(), 1) < 0 ? errno : 0; }));
    EXPECT_LE(1.0, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    EXPECT_EQ("", log.text());
    int waited = -1;
    std::thread waiter([&] { waited = VexLockFileAcquire(path.c_str(), -1); });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(0, VexLockFileRelease(fd));
    waiter.join();
    EXPECT_LE(0, waited);
    EXPECT_EQ(0, VexLockFileRelease(waited));
    EXPECT_FAILS(ENOTDIR, -1, VexLockFileAcquire((path + "/lock").c_str(), 0));
}

TEST_F(ServiceUser, IsReadFromTheRegistryAndBecomeForGood) {
    setenv("ZQREGISTRY", path.c_str(), 1);
    char name[16] = "x";
    EXPECT_EQ(0, VexServiceUserGet(name, sizeof name));
    EXPECT_STREQ("", name);
    InifileReleaseAll();
    writeFile(path, "[Service]\nUser = nobody\n");
    EXPECT_EQ(0, VexServiceUserGet(name, sizeof name));
    EXPECT_STREQ("nobody", name);
    EXPECT_FAILS(ENOBUFS, -1, VexServiceUserGet(name, 6));
    unsetenv("ZQREGISTRY");
    InifileReleaseAll();
    EXPECT_FAILS(ENOENT, -1, VexRunAsUser("no-such-user"));
    if (VexIsRoot() == 0) GTEST_SKIP() << "only root can become another user";
    EXPECT_EQ(0, inChild([] {
        if (VexRunAsUser("nobody") != 0) return 1;
        const passwd *nobody = getpwnam("nobody");
        if (getuid() != nobody->pw_uid || getegid() != nobody->pw_gid || VexIsRoot() != 0) return 2;
        if (setuid(0) == 0 || getgroups(0, nullptr) > 1) return 3;
        if (prctl(PR_CAPBSET_READ, 0, 0, 0, 0) != 0) return 4;
        rlimit files{};
        if (getrlimit(RLIMIT_NOFILE, &files) != 0 || files.rlim_cur != files.rlim_max) return 5;
        if (VexRunAsUser("nobody") != 0) return 6;
        return VexRunAsUser("root") == -1 && errno == EPERM ? 0 : 7;
    }));
}

TEST(Spawn, RunsCapturesCutsAndKills) {
    char output[16];
    int status = -1;
    const auto run = [&](const char *script, int timeout) {
        const char *const argv[] = {"/bin/sh", "-c", script, nullptr};
        return VexSpawn(argv, &status, output, sizeof output, timeout);
    };
    EXPECT_EQ(0, run("echo out; echo err >&2; exit 3", 0));
    EXPECT_STREQ("out\nerr\n", output);
    EXPECT_EQ(3, status);
    EXPECT_EQ(0, run("seq 100000; kill -9 $$", 0)) << "reads on past the room";
    EXPECT_STREQ("1\n2\n3\n4\n5\n6\n7\n8", std::string(output).substr(0, 15).c_str());
    EXPECT_EQ(128 + SIGKILL, status);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(0, run("sleep 100 & echo $!", 0)) << "what it leaves behind holds its output open";
    EXPECT_EQ(0, kill(std::stoi(output), SIGKILL));
    LogCapture log;
    EXPECT_FAILS(ETIMEDOUT, -1, run("sleep 100; echo never", 1));
    EXPECT_GT(10.0, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    const char *const absent[] = {"/no/such/program", nullptr};
    EXPECT_FAILS(ENOENT, -1, VexSpawn(absent, nullptr, nullptr, 0, 0));
    EXPECT_THAT(log.lines(), ElementsAre("110 VexSpawn: /bin/sh did not end: Connection timed out",
                                 "2 VexSpawn: could not run /no/such/program: No such file or directory"));
    sigset_t blocked, old;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &blocked, &old);
    signal(SIGTERM, SIG_IGN);
    EXPECT_EQ(0, run("kill -TERM $$; sleep 5", 4)) << "signals are reset";
    EXPECT_EQ(128 + SIGTERM, status);
    const char *const blocks[] = {"/bin/grep", "-c", "SigBlk.*[1-9a-f]", "/proc/self/status", nullptr};
    EXPECT_EQ(0, VexSpawn(blocks, &status, output, sizeof output, 4));
    EXPECT_STREQ("0\n", output) << "and none is blocked";
    signal(SIGTERM, SIG_DFL);
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
}
