// "vex ini": reads and changes configuration files through the ini store.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "base/lock_directory.h"
#include "command.h"
#include "command_options.h"

namespace tool {
namespace {

struct Request {
    const char *path = nullptr;
    const char *section = nullptr;
    const char *key = nullptr;
    const char *value = nullptr;
};

/// A value, or a listing where section or key is NULL, whatever its length; empty when there is
/// none.
std::string fetch(int n, const char *section, const char *key, const char *path) {
    std::string text(4096, '\0');
    for (;;) {
        const int needed = InifileGetNthValueA(n, section, key, text.data(),
                                               static_cast<int>(text.size()), nullptr, path);
        if (needed <= 0) return {};
        if (static_cast<size_t>(needed) <= text.size()) {
            text.resize(static_cast<size_t>(needed) - 1);
            return text;
        }
        text.assign(static_cast<size_t>(needed), '\0');
    }
}

/// Calls f with each name of a listing.
template <typename F>
void eachName(const std::string &listing, F f) {
    for (size_t at = 0; at < listing.size(); at += std::strlen(&listing[at]) + 1) f(&listing[at]);
}

/// The store serves an unreadable file as an empty one; a person wants to know.
int checkReadable(const char *path) {
    if (access(path, R_OK) == 0) return kSuccess;
    return fail("cannot read '%s' (%m): check the path and its permissions", path);
}

int notSet(const Request &request) {
    if (request.key == nullptr)
        return fail("'%s' has no section [%s]: 'vex ini list %s' shows what there is", request.path,
                    request.section, request.path);
    return fail("'%s' has no value for %s in [%s]: 'vex ini list %s' shows what there is",
                request.path, request.key, request.section, request.path);
}

int get(const Request &request) {
    if (checkReadable(request.path) != kSuccess) return kFailure;
    if (InifileValueExistsA(request.section, request.key, request.path) != 0)
        return notSet(request);
    std::printf("%s\n", fetch(0, request.section, request.key, request.path).c_str());
    return kSuccess;
}

int listSection(const char *section, const char *path) {
    const std::string keys = fetch(0, section, nullptr, path);
    eachName(keys, [&](const char *key) {
        std::printf("%s=%s\n", key, fetch(0, section, key, path).c_str());
    });
    return keys.empty() ? kFailure : kSuccess;
}

/// All values of a key, the one that counts first.
int listValues(const Request &request) {
    if (InifileValueExistsA(request.section, request.key, request.path) != 0)
        return notSet(request);
    for (int n = 0;; ++n) {
        const std::string value = fetch(n, request.section, request.key, request.path);
        if (value.empty()) return kSuccess;
        std::printf("%s\n", value.c_str());
    }
}

int list(const Request &request) {
    if (checkReadable(request.path) != kSuccess) return kFailure;
    if (request.key != nullptr) return listValues(request);
    if (request.section != nullptr)
        return listSection(request.section, request.path) == kSuccess ? kSuccess : notSet(request);
    eachName(fetch(0, nullptr, nullptr, request.path), [&](const char *section) {
        std::printf("[%s]\n", section);
        (void)listSection(section, request.path);  // an empty section has no more to show
    });
    return kSuccess;
}

bool load_complained = false;

void noteComplaint(int level, int /*code*/, const char * /*message*/, int /*saved_errno*/) {
    if ((level & (VEX_LOG_ERR | VEX_LOG_WARN)) != 0) load_complained = true;
}

/// Saving writes what was understood: a file with lines that were not is left to its owner.
int loadForChange(const char *path) {
    vexLogSetRedirector(noteComplaint);
    const int result = InifileLoadA(path);
    vexLogSetRedirector(nullptr);
    if (result == 0 && !load_complained) return kSuccess;
    return fail("'%s' stays as it is, since saving it would lose lines: mend it first", path);
}

int save(const char *path) {
    if (InifileSaveA(path) == 0) return kSuccess;
    return fail("'%s' was not saved (%m): check directory, permissions and disk", path);
}

/// Runs a change from reading to saving while no other one of this command can.
template <typename Change>
int alone(const Request &request, Change change) {
    const vex::UniqueFd turn = vex::lockDirectory(vex::directoryToLock(request.path));
    if (!turn)
        return fail("the directory of '%s' cannot be locked (%m): check the path", request.path);
    return change(request);
}

int setValue(const Request &request) {
    if (loadForChange(request.path) != kSuccess) return kFailure;
    if (InifileSaveValueA(request.section, request.key, request.value, request.path) != 0)
        return fail("[%s] %s cannot be stored in '%s': choose names that can be read back",
                    request.section, request.key, request.path);
    return save(request.path);
}

int removeValue(const Request &request) {
    if (checkReadable(request.path) != kSuccess || loadForChange(request.path) != kSuccess)
        return kFailure;
    if (InifileDeleteValueA(request.section, request.key, request.path) != 0)
        return notSet(request);
    return save(request.path);
}

int set(const Request &request) {
    return alone(request, setValue);
}

int remove(const Request &request) {
    return alone(request, removeValue);
}

constexpr struct {
    const char *name;
    int least, most;  ///< operands behind the action
    int (*run)(const Request &request);
} kActions[] = {
    {"get", 3, 3, get}, {"set", 4, 4, set}, {"list", 1, 3, list}, {"delete", 2, 3, remove}};

}  // namespace

int runIni(int argc, char **argv) {
    const int first = CommandOptions().parse(argc, argv);
    if (first < 0) return usageError("'ini' has no options");
    const int count = argc - first - 1;
    const auto operand = [&](int i) { return i <= count ? argv[first + i] : nullptr; };
    for (const auto &action : kActions) {
        if (count < 0 || std::strcmp(argv[first], action.name) != 0) continue;
        if (count < action.least || count > action.most) break;
        return action.run({operand(1), operand(2), operand(3), operand(4)});
    }
    return usageError(
        "'ini' takes get FILE SECTION KEY, set FILE SECTION KEY VALUE, list FILE [SECTION "
        "[KEY]] or delete FILE SECTION [KEY]");
}

}  // namespace tool
