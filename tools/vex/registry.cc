// "vex registry": names and values in the table "registry" of an SQLite file.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "command.h"

namespace tool {
namespace {

int failed(const char *path, const SQLiteConnection &database, const SQLiteException &e) {
    return fail(database.IsCorrupted() ? "'%s' is damaged (%s): restore it from a copy"
                                       : "'%s' cannot be used (%s)",
                path, e.what());
}

int get(SQLiteConnection *database, const char *name) {
    SQLiteException e;
    const std::string value = database->GetRegistryItem(name, &e);
    if (!e.IsGood()) return failed(database->GetDBFilename().c_str(), *database, e);
    if (e.GetErrorCode() == 101) return fail("there is no '%s' in the registry", name);
    std::printf("%s\n", value.c_str());
    return kSuccess;
}

int set(SQLiteConnection *database, const char *name, const char *value) {
    SQLiteException e;
    if (database->CreateRegistryTable(&e) && database->SetRegistryItem(name, value, &e))
        return kSuccess;
    return failed(database->GetDBFilename().c_str(), *database, e);
}

int list(SQLiteConnection *database) {
    SQLiteException e;
    SQLitePreparedStatement select(database, "SELECT name, value FROM registry ORDER BY name", &e);
    if (!e.IsGood()) return failed(database->GetDBFilename().c_str(), *database, e);
    SQLiteResultSet rows = select.ExecuteQuery(&e);
    for (; e.IsGood() && !rows.IsLast(); (void)rows.Next(&e))  // the record tells, not the result
        std::printf("%s = %s\n", rows.GetString(0).c_str(), rows.GetString(1).c_str());
    return e.IsGood() ? kSuccess : failed(database->GetDBFilename().c_str(), *database, e);
}

}  // namespace

int runRegistry(int argc, char **argv) {
    const auto is = [&](const char *action, int arguments) {
        return argc == arguments && std::strcmp(argv[1], action) == 0;
    };
    if (argc < 3 || !(is("get", 4) || is("set", 5) || is("list", 3)))
        return usageError("'registry' needs get DB NAME, set DB NAME VALUE or list DB");
    const bool writes = is("set", 5);
    if (!writes && access(argv[2], R_OK) != 0)
        return fail("cannot read '%s' (%m): check the path", argv[2]);
    SQLiteConnection database;
    database.SetDBFilename(argv[2]);
    SQLiteException e;
    if (!database.Open(&e)) return failed(argv[2], database, e);
    if (writes) return set(&database, argv[3], argv[4]);
    return argc == 4 ? get(&database, argv[3]) : list(&database);
}

}  // namespace tool
