// clients URL MEMBER DATABASE: fetches a JSON document ("http://host:port/path"), takes the text at
// MEMBER ("/release/version") out of it and stores it in the registry of a SQLite database under
// that name. Prints whether it is new, so that a script can act on a change.
#include <cstdio>
#include <string>

#include <vex/frame.h>
#include <vex/json.h>
#include <vex/log.h>
#include <vex/sqlite.h>
#include <vex/storage_http.h>

namespace {

bool fetch(const std::string &url, JsonObject *document) {
    StorageHttpOptions options;
    options.base_url = url;
    options.timeout_s = 20;
    options.max_body = 1 << 20;  // a server that never ends must not fill the memory
    StorageHttpClient client(options);
    StorageHttpResponse response;
    if (client.get("", response) != 0) return false;  // logged, with the reason
    if (response.status != 200) {
        ErrorA(-1, "%s answers with status %ld", url.c_str(), response.status);
        return false;
    }
    return JsonObject::parse(response.body, *document) == 0;
}

/// Stores the value. Nothing in sqlite.h logs: the record says what came of the calls.
bool store(const char *database, const char *name, const std::string &value) {
    SQLiteException outcome;
    SQLiteConnection connection;
    connection.SetDBFilename(database);
    std::string old;
    if (connection.Open(&outcome) && connection.CreateRegistryTable(&outcome)) {
        old = connection.GetRegistryItem(name, &outcome);  // "" when it is absent
        if (old != value) (void)connection.SetRegistryItem(name, value, &outcome);
    }
    if (!outcome.IsGood()) {
        ErrorA(outcome.GetErrorCode(), "%s: %s", database, outcome.what());
        return false;
    }
    std::printf("%s %s\n", old == value ? "same" : "new", value.c_str());
    return true;
}

}  // namespace

int main(int argc, char **argv) {
    const zqutil::LibAutoInit library("clients");
    if (argc != 4) {
        std::fprintf(stderr, "usage: %s URL MEMBER DATABASE\n", argv[0]);
        return 2;
    }
    JsonObject document;
    if (!fetch(argv[1], &document)) return 1;
    std::string value;
    if (document.getString(argv[2], value) != 1) {
        ErrorA(-1, "%s has no text at %s", argv[1], argv[2]);
        return 1;
    }
    return store(argv[3], argv[2], value) ? 0 : 1;
}
