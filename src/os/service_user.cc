#include <errno.h>
#include <grp.h>
#include <linux/capability.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <vex/inifile.h>
#include <vex/process.h>

#include "config/registry.h"
#include "log/report.h"

namespace {

constexpr char kSection[] = "Service", kKey[] = "User";

struct Account {
    std::string name;
    uid_t uid = 0;
    gid_t gid = 0;
};

/// 0, or an errno: ENOENT for a name that the system does not know.
int findAccount(const char *name, Account *account) {
    std::vector<char> room(4096);
    struct passwd entry {
    }, *found = nullptr;
    int err;
    while ((err = getpwnam_r(name, &entry, room.data(), room.size(), &found)) == ERANGE)
        room.resize(2 * room.size());
    if (found == nullptr) return err != 0 ? err : ENOENT;
    *account = {found->pw_name, found->pw_uid, found->pw_gid};
    return 0;
}

bool isAlready(const Account &account) {
    uid_t uids[3];
    gid_t gids[3];
    if (getresuid(&uids[0], &uids[1], &uids[2]) != 0 ||
        getresgid(&gids[0], &gids[1], &gids[2]) != 0)
        return false;
    for (int i = 0; i < 3; ++i)
        if (uids[i] != account.uid || gids[i] != account.gid) return false;
    return true;
}

/// A wish: a service that keeps many streams open should not end at the shell's soft limit.
void raiseOpenFiles() {
    struct rlimit files {};
    if (getrlimit(RLIMIT_NOFILE, &files) != 0) return;
    files.rlim_cur = files.rlim_max;
    (void)setrlimit(RLIMIT_NOFILE, &files);
}

/// While still root: nothing that this process runs may gain a capability.
bool emptyBoundingSet() {
    for (unsigned long capability = 0; capability < 64; ++capability)
        if (prctl(PR_CAPBSET_DROP, capability, 0, 0, 0) != 0)
            return errno == EINVAL;  // the kernel has no more
    return true;
}

/// Whatever securebits say about keeping them.
bool dropCapabilities() {
    struct __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    struct __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3] = {};
    (void)prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0);  // old kernels have none
    return syscall(SYS_capset, &header, none) == 0;
}

/// Whether root is gone; EPERM is the answer that is hoped for. The group may be root's own.
bool rootIsGone(const Account &account) {
    return setresuid(0, 0, 0) != 0 && seteuid(0) != 0 &&
           (account.gid == 0 || setresgid(0, 0, 0) != 0) && isAlready(account);
}

bool become(const Account &account) {
    return initgroups(account.name.c_str(), account.gid) == 0 && emptyBoundingSet() &&
           setresgid(account.gid, account.gid, account.gid) == 0 &&
           setresuid(account.uid, account.uid, account.uid) == 0 && dropCapabilities();
}

}  // namespace

int VexServiceUserGet(char *name, size_t size) {
    if (name == nullptr || size == 0 || size > 0x7fffffff)
        return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    *name = '\0';
    // asked first, because reading an absent key would store its default
    const char *const registry = vex::config::registryPath();
    if (InifileValueExistsA(kSection, kKey, registry) != 0) return 0;
    const int room = static_cast<int>(size);
    if (InifileGetValueA(kSection, kKey, name, room, "", registry) <= room) return 0;
    *name = '\0';
    return VEX_FAIL(ENOBUFS, -1, "target buffer too small");
}

int VexRunAsUser(const char *user) {
    if (user == nullptr || *user == '\0') return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    return vex::guard(__func__, -1, [&] {
        constexpr char kWho[] = "VexRunAsUser";
        Account account;
        if (const int err = findAccount(user, &account); err != 0)
            return VEX_FAIL_AS(kWho, err, err, -1, "unknown user %s: %m", user);
        if (isAlready(account)) return 0;
        if (VexIsRoot() == 0)
            return VEX_FAIL_AS(kWho, EPERM, EPERM, -1, "only root can become user %s", user);
        raiseOpenFiles();
        if (!become(account))
            return VEX_FAIL_AS(kWho, errno, errno, -1, "could not become user %s: %m", user);
        if (account.uid != 0 && !rootIsGone(account))
            return VEX_FAIL_AS(kWho, EPERM, EPERM, -1, "user %s could become root again", user);
        return 0;
    });
}

int VexIsRoot() {
    return geteuid() == 0 ? 1 : 0;
}
