// "vex passwd" and "vex passwd-store": passwords as configuration files keep them, and the keys
// they are under.
#include <openssl/crypto.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "command.h"
#include "command_options.h"
#include "fatal_signal.h"

namespace tool {
namespace {

/// Room for a text that is typed or printed; the key store's functions take up to 1023 characters
/// of it.
constexpr unsigned kRoom = 4096;

/// A text that leaves no copy in memory.
struct Secret {
    char text[kRoom] = "";
    Secret() = default;
    ~Secret() { OPENSSL_cleanse(text, sizeof text); }
    Secret(const Secret &) = delete;
    Secret &operator=(const Secret &) = delete;
};

termios before_prompt;

/// Nobody is told of a failure: typing would stay unseen, no more.
void restoreEcho() {
    (void)tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_prompt);
}

/// Switches off a terminal's echo for as long as it lives, and prompts; does nothing elsewhere.
class Prompt {
public:
    explicit Prompt(const char *text) : active_(tcgetattr(STDIN_FILENO, &before_prompt) == 0) {
        if (!active_) return;
        (void)fputs(text, stderr);
        onFatalSignal(restoreEcho);
        termios quiet = before_prompt;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        (void)tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);  // typing is then seen, no more
    }
    ~Prompt() {
        if (!active_) return;
        restoreEcho();
        onFatalSignal(nullptr);
        (void)fputc('\n', stderr);
    }
    Prompt(const Prompt &) = delete;
    Prompt &operator=(const Prompt &) = delete;

private:
    const bool active_;
};

/// Reads one line from standard input, unbuffered so that no stream keeps it.
int readText(Secret *out) {
    const Prompt prompt("Text: ");
    size_t length = 0;
    ssize_t got = 0;
    while (length < sizeof out->text &&
           (got = safe_read(STDIN_FILENO, out->text + length, 1)) == 1) {
        if (out->text[length] == '\n') break;
        if (out->text[length] == '\0') return fail("the text holds a NUL: give a text without it");
        ++length;
    }
    if (got < 0) return fail("standard input cannot be read (%m): give the text as an argument");
    if (length == sizeof out->text)
        return fail("the text is longer than %u bytes: shorten it", kRoom - 1);
    out->text[length] = '\0';
    return kSuccess;
}

constexpr struct Action {
    const char *name;
    bool with_key;
    int (*run)(const char *store, const char *text, char *out, unsigned room);
    const char *advice;
} kActions[] = {
    {"encode", false,
     [](const char *, const char *text, char *out, unsigned room) {
         return PasswdEncode(text, out, room);
     },
     "shorten the text"},
    {"decode", false,
     [](const char *, const char *text, char *out, unsigned room) {
         return PasswdDecode(text, out, room);
     },
     "give a text that 'vex passwd encode' printed"},
    {"encrypt", true, EncryptPasswdWithKey,
     "check the key store, or make one with 'vex passwd-store init', and keep texts below 496 "
     "bytes"},
    {"decrypt", true, DecryptPasswdWithKey,
     "check the key store, and give a text that 'vex passwd encrypt' printed with its current key"},
};

int apply(const Action &action, const char *store, const char *argument) {
    Secret typed;
    if (argument == nullptr && readText(&typed) != kSuccess) return kFailure;
    const char *text = argument != nullptr ? argument : typed.text;
    Secret result;
    if (action.run(store, text, result.text, sizeof result.text) != 0)
        return fail("cannot %s the text: %s", action.name, action.advice);
    (void)setvbuf(stdout, nullptr, _IONBF, 0);  // the stream keeps no copy either
    std::printf("%s\n", result.text);
    return kSuccess;
}

}  // namespace

int runPasswd(int argc, char **argv) {
    const Action *action = nullptr;
    for (const Action &each : kActions)
        if (argc > 1 && std::strcmp(argv[1], each.name) == 0) action = &each;
    if (action == nullptr) return usageError("'passwd' takes encode, decode, encrypt or decrypt");

    char *option = nullptr;
    CommandOptions options;
    options.add("key-file", OPT_TYPE_PATH, &option).metavar = "STORE";
    const int first = options.parse(argc - 1, argv + 1);
    const std::string store = option != nullptr ? option : "";
    if (first < 0) return usageError("wrong options for 'passwd %s'", action->name);
    const int operands = argc - 1 - first;
    if (operands > 1) return usageError("'passwd %s' takes one text", action->name);
    if (action->with_key == store.empty())
        return usageError(
            action->with_key ? "'passwd %s' needs --key-file" : "'passwd %s' uses no key",
            action->name);
    return apply(*action, store.c_str(), operands == 1 ? argv[1 + first] : nullptr);
}

int runPasswdStore(int argc, char **argv) {
    const int first = CommandOptions().parse(argc, argv);
    if (first < 0) return usageError("'passwd-store' has no options");
    const std::string action = first < argc ? argv[first] : "";
    if (argc - first != 2 || (action != "init" && action != "rotate"))
        return usageError("'passwd-store' takes init STORE or rotate STORE");
    const char *store = argv[first + 1];
    if (action == "init" && PasswdKeyStoreInit(store) != 0)
        return fail(
            "no key store was made at '%s': choose a path that is free, or rotate that store",
            store);
    if (action == "rotate" && PasswdKeyStoreRotate(store) != 0)
        return fail(
            "the key store '%s' has no new key: check that it is readable and has room for one",
            store);
    return kSuccess;
}

}  // namespace tool
