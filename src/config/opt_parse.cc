// The command line: the ini file option first, wherever it stands; then defaults and ini values;
// then every argument in turn; last the check for mandatory options.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <vex/inifile.h>

#include "config/options_internal.h"

namespace vex::config {
namespace {

/// The separate argument that is the value of an option; nullptr when there is none.
const char *nextValue(int argc, char *const *argv, int i) {
    if (i + 1 >= argc || argv[i + 1] == nullptr || *argv[i + 1] == '-') return nullptr;
    return argv[i + 1];
}

/// Gives one option its value from the ini file, or else its default.
int storeInitial(opt_option &option, IniFile &ini) {
    if (ini.value != nullptr && option.ini_section != nullptr && option.ini_key != nullptr) {
        char text[kIniValueRoom];
        const char *path = *static_cast<char **>(ini.option->value);
        errno = 0;
        const int result =
            InifileGetValueA(option.ini_section, option.ini_key, text, sizeof text, "", path);
        ini.option->flags |= OPT_FROM_INI;
        if (errno == ENOMEM) return -1;  // reported; the default is not what the file may say
        if (result > kIniValueRoom)
            return VEX_FAIL_AS("opt_parse", -1, ENOBUFS, -1,
                               "value of [%s] %s in %s is too long for option %s",
                               option.ini_section, option.ini_key, path, nameOf(option).c_str());
        if (*text != '\0') return store(option, text, Origin::kGiven);
    }
    return option.default_value == nullptr ? 0
                                           : store(option, option.default_value, Origin::kDefault);
}

int storeInitials(opt_option *const *options, int argc, char *const *argv) {
    IniFile ini = findIniFile(options, argc, argv);
    if (ini.value != nullptr &&
        store(*ini.option, ini.value, ini.given ? Origin::kGiven : Origin::kDefault) != 0)
        return -1;
    for (; *options != nullptr; ++options) {
        opt_option &option = **options;
        if (!takesValue(option))
            storeFlag(option, false);
        else if (&option != ini.option && storeInitial(option, ini) != 0)
            return -1;
    }
    return 0;
}

/// Applies argv[i]; how many arguments were used, or -1.
int applyArgument(opt_option *const *options, int argc, char *const *argv, int i) {
    const Argument found = takeApart(options, argv[i]);
    if (found.option == nullptr) {
        // a value in a mistyped option may be a secret: only the name is shown
        const size_t length = found.is_long ? std::strcspn(argv[i], "=") : 2;
        return VEX_OPTION_FAULT("opt_parse", "invalid option %.*s", static_cast<int>(length),
                                argv[i]);
    }
    opt_option &option = *found.option;
    if (!takesValue(option)) {
        if (found.attached != nullptr)
            return found.is_long
                       ? VEX_OPTION_FAULT("opt_parse", "option --%s does not accept a value",
                                          option.long_name)
                       : VEX_OPTION_FAULT("opt_parse", "option -%c does not accept a value",
                                          option.short_name);
        storeFlag(option, true);
        return 1;
    }
    const char *value = found.attached != nullptr ? found.attached : nextValue(argc, argv, i);
    if (value == nullptr)
        return found.is_long ? VEX_OPTION_FAULT("opt_parse", "option --%s requires a %s value",
                                                option.long_name, metavarOf(option))
                             : VEX_OPTION_FAULT("opt_parse", "option -%c requires a %s value",
                                                option.short_name, metavarOf(option));
    if (store(option, value, Origin::kGiven) != 0) return -1;
    return found.attached != nullptr ? 1 : 2;
}

int checkMandatory(opt_option *const *options) {
    int result = 0;
    for (; *options != nullptr; ++options)
        if (((*options)->flags & OPT_MANDATORY) != 0 && ((*options)->flags & OPT_SET) == 0)
            result = VEX_OPTION_FAULT("opt_parse", "Mandatory option %s has not been specified",
                                      nameOf(**options).c_str());
    return result;
}

}  // namespace

bool isOption(const char *argument) {
    return argument[0] == '-' && argument[1] != '\0' && std::strcmp(argument, "--") != 0;
}

Argument takeApart(opt_option *const *options, const char *argument) {
    Argument result;
    result.is_long = argument[1] == '-';
    for (; *options != nullptr && result.option == nullptr; ++options) {
        opt_option &option = **options;
        if (!result.is_long) {
            if (option.short_name != argument[1]) continue;
            result.option = &option;
            if (argument[2] != '\0') result.attached = argument + 2;
        } else if (option.long_name != nullptr) {
            const size_t length = std::strlen(option.long_name);
            if (std::strncmp(argument + 2, option.long_name, length) != 0) continue;
            const char *rest = argument + 2 + length;
            if (*rest != '\0' && *rest != '=') continue;
            result.option = &option;
            if (*rest == '=') result.attached = rest + 1;
        }
    }
    return result;
}

IniFile findIniFile(opt_option *const *options, int argc, char *const *argv) {
    IniFile result;
    for (int i = 1; i < argc && argv[i] != nullptr && isOption(argv[i]); ++i) {
        const Argument found = takeApart(options, argv[i]);
        if (found.option == nullptr || !takesValue(*found.option)) continue;
        const char *value = found.attached != nullptr ? found.attached : nextValue(argc, argv, i);
        if (found.option->type == OPT_TYPE_INI_FILE && value != nullptr)
            result = {found.option, value, true};
        if (found.attached == nullptr && value != nullptr) ++i;
    }
    for (; *options != nullptr && result.option == nullptr; ++options)
        if ((*options)->type == OPT_TYPE_INI_FILE)
            result = {*options, (*options)->default_value, false};
    return result;
}

}  // namespace vex::config

using namespace vex::config;

int opt_parse(opt_option **options, int argc, char **argv) {
    if (options == nullptr || argv == nullptr)
        return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    return vex::guard(__func__, -1, [&] {
        if (opt_validate(options) != 0) return VEX_OPTION_FAULT("opt_parse", "invalid options");
        if (storeInitials(options, argc, argv) != 0) return -1;
        int i = 1;
        while (i < argc && argv[i] != nullptr && isOption(argv[i])) {
            const int used = applyArgument(options, argc, argv, i);
            if (used < 0) return -1;
            i += used;
        }
        if (i < argc && argv[i] != nullptr && std::strcmp(argv[i], "--") == 0) ++i;
        return checkMandatory(options) != 0 ? -1 : std::max(i, 1);
    });
}

void opt_free(opt_option **options) {
    for (; options != nullptr && *options != nullptr; ++options) {
        opt_option &option = **options;
        if ((option.flags & OPT_FROM_INI) != 0)
            (void)InifileReleaseA(*static_cast<char **>(option.value));
        if ((option.flags & OPT_VALUE_ALLOCATED) != 0) {
            char *&variable = *static_cast<char **>(option.value);
            std::free(variable);
            variable = nullptr;
        }
        option.flags &= ~(OPT_FROM_INI | OPT_VALUE_ALLOCATED | OPT_SET);
    }
}
