/*
 * Writes a receipt for a file: a number that no other receipt has, an identifier, size and
 * fingerprint.
 *
 *   cc receipt.c $(pkg-config --cflags --libs vex) -o receipt
 *   ./receipt receipt.ini FILE
 *
 * receipt.py does the same, so the two take their numbers from one counter.
 */
#include <errno.h>
#include <inttypes.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vex/vex.h>

enum { kPath = 4096 };

/* The next number from the Id file at path, which begins at 1. Every failure has been logged by the
 * library. */
static int next_number(const char *path, uint64_t *number) {
    char lock_path[kPath + 8];
    int result = -1, fd = -1, lock;
    snprintf(lock_path, sizeof lock_path, "%s.lock", path);
    lock = VexLockFileAcquire(lock_path, -1); /* writers of one counter take turns */
    if (lock < 0) return -1;
    if (access(path, F_OK) == 0 || WriteIdToPath(path, "receipt", 0) == 0)
        fd = OpenId(path, "receipt", number, 0);
    if (fd >= 0) {
        result = NextId(path, "receipt", number, fd);
        if (close(fd) != 0) result = -1;
    }
    VexLockFileRelease(lock);
    return result;
}

static int write_receipt(const char *ini, const char *file) {
    char counter[kPath], log[kPath], uid_text[33], fingerprint[65], size_text[24];
    uint64_t number = 0;
    VexUID uid;
    struct stat status;
    int flags = vexLogLoadA(ini, "Receipt", "LogPath", log, sizeof log, "receipt.log", NULL);
    if (flags < 0) return -1;
    vexLogSet(log, flags | VEX_LOG_STDERR_SEVERE, 0);
    if (InifileGetPathA("Receipt", "Counter", counter, sizeof counter, NULL, ini) <= 0) {
        InifileErrorA(ini, "Receipt", "Counter", NULL, "the path of an Id file is needed");
        return -1;
    }

    if (stat(file, &status) != 0) {
        ErrorA(errno, "cannot read '%s': %m", file);
        return -1;
    }
    if (SHA256FromFile_r(file, fingerprint, sizeof fingerprint) == NULL) return -1;
    if (VexUIDGenerate(&uid, 1) == NULL) return -1;
    VexUIDSerialize(uid_text, sizeof uid_text, &uid, false);
    if (next_number(counter, &number) != 0) return -1;

    printf("%" PRIu64 " %s %s %s %s\n", number, uid_text,
           sizetostr(size_text, sizeof size_text, (uint64_t)status.st_size), fingerprint, file);
    InfoA(-1, "receipt %" PRIu64 " for '%s'", number, file);
    return 0;
}

int main(int argc, char **argv) {
    int result;
    if (argc != 3) {
        fprintf(stderr, "usage: %s SETTINGS FILE\n", argv[0]);
        return 2;
    }
    _VexLibInit(argv[0], VEX_INTERFACE_VERSION);
    result = write_receipt(argv[1], argv[2]);
    VexLibDestroy();
    return result == 0 ? 0 : 1;
}
