// The commands, what they work on, and the line that shows how far they are.
#ifndef VAULT_COMMANDS_H
#define VAULT_COMMANDS_H

#include "snapshot.h"

namespace vault {

/// What command line and ini file say.
struct Settings {
    std::string directory;               ///< the vault, absolute
    std::vector<std::string> arguments;  ///< what follows it
    std::string key_file, cipher;
    uint64_t chunk_size = 0;  ///< bytes on average
    uint32_t keep = 0;        ///< snapshots that prune leaves, 0 for all
    bool one_file_system = false;
};

/// Reads both and sets up the log.
Settings readSettings(int argc, char **argv);
/// Writes the ini file of a new vault.
void writeSettings(const Settings &settings);
void printOptions();

struct Vault {
    Settings settings;
    Catalogue catalogue;

    /// Reads the key and looks whether it is the vault's.
    void openKey();
};

// Each works on an open vault.
void backup(Vault *vault);
void restore(Vault *vault);
void verify(Vault *vault);
void prune(Vault *vault);

/// One line on a terminal that tells how far a command is; nothing elsewhere.
class Progress {
public:
    explicit Progress(const char *verb) : verb_(verb) {}
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;
    ~Progress();

    void add(uint64_t files, uint64_t bytes);
    uint64_t files() const { return files_; }
    uint64_t bytes() const { return bytes_; }
    double megabytesPerSecond() const;

private:
    const char *verb_;
    uint64_t start_ = gethrtime(), shown_ = 0, files_ = 0, bytes_ = 0;
};

}  // namespace vault

#endif
