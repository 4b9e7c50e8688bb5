// "vex walk": the files below a directory, one a line.
#include <fnmatch.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

#include "command.h"
#include "command_options.h"
#include "json.h"

namespace tool {
namespace {

struct Request {
    bool json = false, status = false, null_ended = false, sorted = false;
    bool same_device = false, follow = false;
    uint32_t delay = 0, depth = 0;
    uint64_t larger = 0;
    bool by_size = false;
    std::string name, types;  ///< empty: all
};

/// Index of the operand, or -1 when the command line is wrong, which was told.
int parse(int argc, char **argv, Request *request) {
    char *name = nullptr, *types = nullptr, *larger = nullptr;
    CommandOptions options;
    options.flag("json", &request->json);
    options.flag("stat", &request->status);
    options.flag("null", &request->null_ended);
    options.flag("sorted", &request->sorted);
    options.flag("same-device", &request->same_device);
    options.flag("follow", &request->follow);
    options.add("delay", OPT_TYPE_NUMBER32, &request->delay);
    options.add("depth", OPT_TYPE_NUMBER32, &request->depth, "32767");
    options.add("name", OPT_TYPE_RAW_STRING, &name);
    options.add("type", OPT_TYPE_RAW_STRING, &types);
    options.add("larger", OPT_TYPE_RAW_STRING, &larger);
    const int first = options.parse(argc, argv);
    if (name != nullptr) request->name = name;
    if (types != nullptr) request->types = types;
    request->by_size = larger != nullptr;
    const char *end = larger;
    if (larger != nullptr) request->larger = strtosize(larger, &end);
    const bool is_size = larger == nullptr || (*larger >= '0' && *larger <= '9' && *end == '\0');
    if (first < 0) return usageError("wrong options for 'walk'"), -1;
    if (!is_size) return usageError("--larger needs a size, such as 10MiB"), -1;
    if (request->types.find_first_not_of("fdlo") != std::string::npos)
        return usageError("--type takes the letters f, d, l and o"), -1;
    if (argc - first != 1) return usageError("'walk' needs one directory"), -1;
    return first;
}

/// The letter of --type and the word of --json.
struct Kind {
    char letter;
    const char *word;
};
Kind kindOf(const DirEntry &entry) {
    switch (entry.info) {
        case DDS_D:
            return {'d', "directory"};
        case DDS_DC:
            return {'d', "cycle"};
        case DDS_F:
            return {'f', "file"};
        case DDS_SL:
        case DDS_SLNONE:
            return {'l', "link"};
        default:
            return {'o', "other"};
    }
}

bool isWanted(const Request &request, const DirEntry &entry) {
    if (!request.name.empty() && fnmatch(request.name.c_str(), entry.name, 0) != 0) return false;
    if (!request.types.empty() && request.types.find(kindOf(entry).letter) == std::string::npos)
        return false;
    return !request.by_size ||
           (entry.info == DDS_F && static_cast<uint64_t>(entry.statp->st_size) > request.larger);
}

void printJson(const Request &request, const DirEntry &entry) {
    const struct stat &status = *entry.statp;
    std::printf("{\"path\":%s,\"type\":\"%s\",\"level\":%d", jsonString(entry.path).c_str(),
                kindOf(entry).word, entry.level);
    if (request.status)
        std::printf(",\"mode\":\"%04o\",\"links\":%" PRIu64
                    ",\"user\":%u,\"group\":%u,\"size\":%" PRIu64 ",\"modified\":%" PRId64,
                    status.st_mode & 07777U, static_cast<uint64_t>(status.st_nlink), status.st_uid,
                    status.st_gid, static_cast<uint64_t>(status.st_size),
                    static_cast<int64_t>(status.st_mtime));
    std::printf("}\n");
}

void print(const Request &request, const DirEntry &entry) {
    if (request.json) return printJson(request, entry);
    if (request.status) {
        tm utc{};
        char modified[32];
        (void)gmtime_r(&entry.statp->st_mtime, &utc);
        (void)strftime(modified, sizeof modified, "%FT%TZ", &utc);
        std::printf("%s %12" PRIu64 " %s ", GetModeStringA(entry.statp->st_mode),
                    static_cast<uint64_t>(entry.statp->st_size), modified);
    }
    std::printf("%s%c", entry.path, request.null_ended ? '\0' : '\n');
}

int byName(const DirEntry **a, const DirEntry **b) {
    return std::strcmp((*a)->name, (*b)->name);
}

/// Prints an entry, or tells what befell it.
int visit(const Request &request, DirEntry *entry) {
    switch (entry->info) {
        case DDS_DP:
            return kSuccess;
        case DDS_DNR:
        case DDS_ERR:
        case DDS_NS:
            return fail("'%s' could not be read (%s): what it holds is not listed", entry->path,
                        DirGetStrerrorA(entry));
        default:
            break;
    }
    if (entry->info == DDS_D && entry->level >= static_cast<int64_t>(request.depth))
        (void)DirSetFlagsA(entry, DDS_SKIP);  // a good entry and a good instruction
    if (isWanted(request, *entry)) print(request, *entry);
    return kSuccess;
}

}  // namespace

int runWalk(int argc, char **argv) {
    Request request;
    const int first = parse(argc, argv, &request);
    if (first < 0) return kUsage;
    const char *const root = argv[first];
    uint32_t options = request.follow ? DDS_LOGICAL : DDS_PHYSICAL | DDS_COMFOLLOW;
    if (request.same_device) options |= DDS_XDEV;
    // names alone need no look at most files
    if (!request.json && !request.status && !request.by_size && request.types.empty())
        options |= DDS_NOSTAT;
    DirStream *const walk =
        DirOpenA(root, options, request.sorted ? byName : nullptr, request.delay);
    if (walk == nullptr) return fail("'%s' cannot be walked (%m): check the path", root);
    int status = kSuccess;
    while (DirEntry *const entry = DirGetNextA(walk)) {
        status |= visit(request, entry);
        if (std::ferror(stdout) != 0) break;
        errno = 0;
    }
    if (errno != 0 && std::ferror(stdout) == 0)
        status =
            fail("the walk of '%s' ended before its time (%m): the list is not complete", root);
    if (DirCloseA(walk) != 0) status = fail("there is no way back from '%s' (%m)", root);
    return status;
}

}  // namespace tool
