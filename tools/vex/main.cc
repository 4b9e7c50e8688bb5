// The companion command: start-up, the log, and the table of commands.
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <string>

#include "command.h"

namespace tool {
namespace {

constexpr std::array kCommands = {
    Command{"keygen", "KEYFILE", "make a random key; an existing file is left alone", runKeygen},
    Command{"seal",
            "[--key-file K] [--cipher blowfish|aes-256-cfb|aes-256-ofb|aes-256-ctr]\n"
            "      [--compress lzo|deflate|none] [--no-encrypt] [--level N] [--window N] IN OUT",
            "compress and encrypt a file: AES-256-CTR and LZO by default", runSeal},
    Command{"open", "[--key-file K] [--cipher NAME] IN OUT", "get back what was sealed", runOpen},
    Command{"info", "[--json] FILE...", "describe sealed files, damaged ones too, without a key",
            runInfo},
    Command{"digest", "[--md5] [--json] [--check LIST] FILE...",
            "print SHA-512/256 digests (or MD5), or check those of LIST", runDigest},
    Command{"index", "[--files] [--bits N] [--json] LIST...",
            "load lists of digests, or the digests of FILES, into an index and tell its figures",
            runIndex},
    Command{"uid", "[-n N] [--json]", "draw N unique identifiers, 1 by default", runUid},
    Command{"id", "show|next|write FILE [VALUE]", "read, step or store the counter of an Id file",
            runId},
    Command{"ini", "get|set|list|delete FILE [SECTION [KEY [VALUE]]]",
            "read or change a configuration file", runIni},
    Command{"size", "[--json] TEXT...", "read sizes such as 10GiB: bytes, exact and rounded",
            runSize},
    Command{"sort",
            "[--record N [--key OFF:LEN]] [--unique] [--memory SIZE] [--merge N]\n"
            "      [--temp DIR] IN OUT",
            "sort lines, or records of N bytes, by their bytes; equal ones keep their order",
            runSort},
    Command{"passwd", "encode|decode|encrypt|decrypt [--key-file STORE] [TEXT]",
            "make a password unreadable, or readable; standard input without TEXT", runPasswd},
    Command{"passwd-store", "init|rotate STORE", "make a key store, or give it a new current key",
            runPasswdStore},
    Command{"os", "[--json]", "describe the machine, and how much of it this process gets", runOs},
    Command{"walk",
            "[--type fdlo] [--name PATTERN] [--larger SIZE] [--depth N] [--same-device]\n"
            "      [--follow] [--delay MS] [--sorted] [--stat] [--json|--null] DIR",
            "list what is below a directory; --delay spares a busy disk", runWalk},
    Command{"http",
            "get|put|post|head|delete [--ca-file F] [--cert F --key F] [--proxy URL]\n"
            "      [--header TEXT] [--content-type T] [--timeout S] [--retries N] [--digest] URL "
            "[FILE]",
            "make one request to a server; get writes to FILE or standard output", runHttp},
    Command{"registry", "get|set|list DB [NAME [VALUE]]",
            "read or change the names and values in an SQLite file", runRegistry},
    Command{"cloud", "show|enable|disable|cache-size GB",
            "read or change the cache in front of cloud storage", runCloud},
    Command{"net",
            "resolve HOST [PORT] | connect HOST PORT [LINE] | listen PORT [HOST]\n"
            "      | local HOST | range NETWORKS [ADDRESS]\n"
            "      | routes [add|delete TARGET INTERFACE [SOURCE]]",
            "try the resolver, connections, networks, interfaces and routes", runNet},
};

void printUsage(const char *progname) {
    std::printf("\nUsage: %s [--ini FILE] COMMAND [ARGUMENT...]\n\n", progname);
    for (const Command &command : kCommands)
        std::printf("  %s %s\n        %s\n", command.name, command.synopsis, command.summary);
    std::printf(
        "\nA FILE of \"-\" is standard input where a command reads data. Options stand before other"
        "\narguments; \"--\" ends them. --ini FILE, anywhere before it, names the configuration\n"
        "that the log is set up from: section [vex], or [Logging], with the keys Logging (what is\n"
        "logged) and LogPath (directory of vex.log).\n\n"
        "Exit status: 0 success, 1 failure, 2 wrong usage.\n");
}

/// One line for the person and the same line for the log file; standard error has it already.
void tell(const char *text) {
    (void)fprintf(stderr, "vex: %s\n", text);
    int flags = 0;
    int syslog_mask = 0;
    vexLogGetFlags(&flags, &syslog_mask);
    vexLogSetFlags(flags | VEX_LOG_SILENT, syslog_mask);
    ErrorA(-1, "%s", text);
    vexLogSetFlags(flags, syslog_mask);
}

/// Takes "--ini FILE" and "--ini=FILE" out of the arguments; the last one counts. False when FILE
/// is missing.
bool takeIni(int *argc, char **argv, const char **path) {
    int kept = 1;
    int at = 1;
    for (; at < *argc && std::strcmp(argv[at], "--") != 0; ++at) {
        if (std::strncmp(argv[at], "--ini=", 6) == 0) {
            *path = argv[at] + 6;
        } else if (std::strcmp(argv[at], "--ini") == 0) {
            if (++at >= *argc) return false;
            *path = argv[at];
        } else {
            argv[kept++] = argv[at];
        }
    }
    while (at < *argc) argv[kept++] = argv[at++];
    argv[kept] = nullptr;
    *argc = kept;
    return true;
}

/// Standard error shows what failed; everything else goes to the log file that the configuration
/// names.
int setUpLog(const char *ini) {
    (void)vexLogSet(nullptr, VEX_LOG_PRESET_SHORT | VEX_LOG_STDERR_SEVERE, 0);  // always 0
    if (ini == nullptr) return kSuccess;
    // the store serves defaults for a missing file; a name that was given must be right
    if (access(ini, R_OK) != 0)
        return fail("cannot read the configuration '%s' (%m): check the path after --ini", ini);
    char path[PATH_MAX];
    const int flags =
        vexLogLoadStripA(ini, "vex", "LogPath", path, sizeof path, "vex.log", nullptr, 1);
    if (flags < 0)
        return fail("no log can be set up from '%s': mend the keys Logging and LogPath there", ini);
    // a walk moves the working directory; the log must not follow it
    const std::string absolute = std::filesystem::absolute(path);
    (void)vexLogSet(absolute.c_str(), flags | VEX_LOG_STDERR_SEVERE, 0);  // always 0
    return kSuccess;
}

int runCommand(int argc, char **argv) {
    if (argc < 2) return usageError("no command given");
    for (const Command &command : kCommands) {
        if (std::strcmp(command.name, argv[1]) != 0) continue;
        const int status = command.run(argc - 1, argv + 1);
        if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
            return fail(
                "standard output was not written completely (%m): make room or mend the pipe");
        return status;
    }
    return usageError("there is no command '%s'", argv[1]);
}

int run(int argc, char **argv) {
    const zqutil::LibAutoInit library("vex");
    _checkCommonArgs(&argc, argv, printUsage, VEX_PRODUCT_VERSION, __DATE__, __TIME__, "Release");
    const char *ini = nullptr;
    if (!takeIni(&argc, argv, &ini))
        return usageError("--ini needs the path of a configuration file");
    const int status = setUpLog(ini);
    return status == kSuccess ? runCommand(argc, argv) : status;
}

}  // namespace

int fail(const char *format, ...) {
    char text[3 * PATH_MAX];
    va_list args;
    va_start(args, format);
    (void)vsnprintf(text, sizeof text, format, args);
    va_end(args);
    tell(text);
    return kFailure;
}

int usageError(const char *format, ...) {
    char text[3 * PATH_MAX];
    va_list args;
    va_start(args, format);
    (void)vsnprintf(text, sizeof text, format, args);
    va_end(args);
    tell((std::string(text) + "; 'vex --help' shows the usage").c_str());
    return kUsage;
}

}  // namespace tool

int main(int argc, char **argv) {
    try {
        return tool::run(argc, argv);
    } catch (const std::exception &e) {
        return tool::fail("stopped: %s", e.what());
    }
}
