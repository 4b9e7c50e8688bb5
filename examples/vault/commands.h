// The commands, each of which works on an open vault.
#ifndef VAULT_COMMANDS_H
#define VAULT_COMMANDS_H

#include "catalogue.h"
#include "settings.h"

namespace vault {

struct Vault {
    const Settings &settings;
    Catalogue catalogue;
};

void backup(Vault *vault);
void restore(Vault *vault);
void verify(Vault *vault);
void prune(Vault *vault);
/// Reads the key and looks whether it is the vault's.
void openKey(Vault *vault);

}  // namespace vault

#endif
