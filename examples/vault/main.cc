// vault: a small deduplicating backup, and a tour of the library, see docs/tour.md.
#include <malloc.h>

#include "commands.h"
#include "snapshot.h"

namespace vault {
namespace {

enum ExitStatus { kSuccess, kFailure, kUsage };

void init(Vault *vault) {
    auto &[settings, catalogue] = *vault;
    catalogue.create();
    const bool fresh = vex_access(settings.key.c_str(), F_OK) != 0;
    if (fresh) Sealer::makeKeyFile(settings.key);
    catalogue.sealer.open(settings.key, settings.cipher);
    settings.write();
    catalogue.set("key", catalogue.sealer.keyCheck());
    catalogue.set("cipher", settings.cipher);
    for (const std::string &name : {settings.directory, settings.key})
        done(dirfsync(parentOf(name).c_str(), 0) == 0);
    catalogue.commit();
    printf("made %s; its key is %s%s\n", settings.directory.c_str(), settings.key.c_str(),
           fresh ? ", new: keep a copy elsewhere, without it nothing can be restored" : "");
}

void list(Vault *vault) {
    printf("%-32s  %-19s %10s %12s %12s  sources\n", "snapshot", "time", "files", "size", "stored");
    for (const Snapshot &one : listSnapshots(&vault->catalogue)) {
        const auto seconds = static_cast<time_t>(one.time);
        struct tm local {};
        char when[32] = "";
        strftime(when, sizeof when, "%Y-%m-%d %H:%M:%S", VexLocaltime(&seconds, &local));
        printf("%-32s  %-19s %10llu %12s %12s  %s\n", one.uid.c_str(), when,
               static_cast<U64>(one.files), sizeText(one.bytes).c_str(),
               sizeText(one.stored).c_str(), one.sources.c_str());
    }
}

struct Command {
    const char *name, *arguments, *does;
    size_t fewest, most;  ///< arguments behind the options
    bool needs_key;       ///< before it runs
    void (*run)(Vault *);
};

constexpr Command kCommands[] = {
    {"init", "", "makes a vault, and a key unless there is one", 0, 0, false, init},
    {"backup", "SOURCE...", "stores files and directories as a snapshot", 1, SIZE_MAX, true,
     backup},
    {"list", "", "lists the snapshots", 0, 0, false, list},
    {"restore", "SNAPSHOT TARGET", "brings one back: \"latest\" or a UID's beginning", 2, 2, true,
     restore},
    {"verify", "", "reads everything and names what is damaged", 0, 0, false, verify},
    {"prune", "", "forgets snapshots beyond --keep and frees room", 0, 0, true, prune},
};

void usage(const char *) {
    printf("\nUsage: vault COMMAND DIR [OPTION]... [ARGUMENT]...\n\n");
    for (const Command &command : kCommands)
        printf("  vault %-7s DIR %-16s %s\n", command.name, command.arguments, command.does);
    printf("\n");
    (void)opt_fprintf_help(stdout, "vault COMMAND DIR", 0, nullptr, Settings().table,
                           "[ARGUMENT]...");
}

int run(const Command &command, int argc, char **argv) {
    Settings settings;
    const bool usable = succeeds([&] {
        settings.read(argc, argv);
        const size_t count = settings.arguments.size();
        check(count >= command.fewest && count <= command.most,
              "usage: vault %s DIR [OPTION]... %s", command.name, command.arguments);
    });
    if (!usable) return kUsage;
    InfoA(-1, "vault %s begins", command.name);
    const bool good = succeeds([&] {
        Vault vault{settings, Catalogue(settings.directory)};
        if (command.run != init) vault.catalogue.open();
        if (command.needs_key) openKey(&vault);
        command.run(&vault);
        check(fflush(stdout) == 0 && ferror(stdout) == 0, "the answer cannot be written: %m");
    });
    InfoA(-1, "vault %s %s", command.name, good ? "ends" : "fails");
    return good ? kSuccess : kFailure;
}

}  // namespace

void openKey(Vault *vault) {
    auto &[settings, catalogue] = *vault;
    catalogue.sealer.open(settings.key, catalogue.get("cipher"));
    check(catalogue.sealer.keyCheck() == catalogue.get("key"), "wrong key: %s is not the key of %s",
          settings.key.c_str(), settings.directory.c_str());
}

}  // namespace vault

int main(int argc, char **argv) {
    // a standard stream that is closed must not become a file of the vault
    for (int fd = 0; fd >= 0 && fd <= STDERR_FILENO;) fd = open("/dev/null", O_RDWR | O_CLOEXEC);
    // the threads that open containers come and go: no arena for each;
    // NOLINTNEXTLINE(concurrency-mt-unsafe)
    mallopt(M_ARENA_MAX, 1);
    const zqutil::LibAutoInit library("vault");
    (void)vexLogSet(nullptr, VEX_LOG_PRESET_SHORT | VEX_LOG_STDERR_SEVERE, 0);
    _checkCommonArgs(&argc, argv, vault::usage, GetVEXVersion(), __DATE__, __TIME__, "Release");
    for (const vault::Command &command : vault::kCommands)
        if (argc >= 2 && strcmp(argv[1], command.name) == 0)
            return vault::run(command, argc - 1, argv + 1);
    vault::usage(argv[0]);
    return vault::kUsage;
}
