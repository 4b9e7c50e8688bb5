// Names of options, and the check of the program's table before anything is done with it.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "config/options_internal.h"

extern const char *const opt_type_metavars[16] = {
    nullptr,  nullptr,  nullptr,  nullptr, "STRING", "STRING", "PATHNAME", "PATHNAME",
    "NUMBER", "NUMBER", "NUMBER", "SIZE",  "SIZE",   "SIZE",   "BOOLEAN",  "STRING"};

namespace vex::config {
namespace {

constexpr int kLastType = OPT_TYPE_RAW_STRING;

int checkDuplicates(opt_option *const *options, const opt_option &option) {
    for (; *options != &option; ++options) {
        const opt_option &other = **options;
        if (option.short_name != 0 && option.short_name == other.short_name)
            return VEX_OPTION_FAULT("opt_validate",
                                    "internal option configuration error: duplicate option -%c",
                                    option.short_name);
        if (option.long_name != nullptr && other.long_name != nullptr &&
            std::strcmp(option.long_name, other.long_name) == 0)
            return VEX_OPTION_FAULT("opt_validate",
                                    "internal option configuration error: duplicate option --%s",
                                    option.long_name);
    }
    return 0;
}

int checkOption(const opt_option &option) {
    char name[256];
    if (opt_snprintf(name, sizeof name, &option) < 0)
        return VEX_OPTION_FAULT("opt_validate", "cannot print option name");
    if (option.type <= 0 || option.type == 3 || option.type > kLastType)
        return VEX_OPTION_FAULT(
            "opt_validate",
            "internal option configuration error: invalid option type %d for option %s",
            option.type, name);
    if (option.short_name == '-')
        return VEX_OPTION_FAULT(
            "opt_validate",
            "internal option configuration error: short option name cannot be '-' for option %s",
            name);
    if (option.long_name != nullptr && *option.long_name == '\0')
        return VEX_OPTION_FAULT(
            "opt_validate",
            "internal option configuration error: long option name cannot be empty for option %s",
            name);
    if (option.value == nullptr)
        return VEX_OPTION_FAULT(
            "opt_validate",
            "internal option configuration error: pointer to value is NULL for option %s", name);
    if (option.default_value != nullptr && takesValue(option) &&
        !converts(option, option.default_value))
        return VEX_OPTION_FAULT(
            "opt_validate",
            "internal option configuration error: invalid default value for option %s", name);
    if (option.ini_section != nullptr && option.ini_key == nullptr)
        return VEX_OPTION_FAULT(
            "opt_validate",
            "internal option configuration error: ini_section without ini_key for option %s", name);
    if (option.ini_key != nullptr && option.ini_section == nullptr)
        return VEX_OPTION_FAULT(
            "opt_validate",
            "internal option configuration error: ini_key without ini_section for option %s", name);
    return 0;
}

}  // namespace

const char *metavarOf(const opt_option &option) {
    if (option.metavar != nullptr) return option.metavar;
    const bool known =
        option.type > 0 && option.type <= kLastType && opt_type_metavars[option.type] != nullptr;
    return known ? opt_type_metavars[option.type] : "";
}

std::string nameOf(const opt_option &option) {
    char name[256];
    return opt_snprintf(name, sizeof name, &option) < 0 ? std::string() : std::string(name);
}

int opt_validate(opt_option *const *options) {
    for (opt_option *const *at = options; *at != nullptr; ++at)
        if (checkDuplicates(options, **at) != 0 || checkOption(**at) != 0) return -1;
    return 0;
}

}  // namespace vex::config

int opt_snprintf(char *buf, size_t size, const opt_option *option) {
    if (buf == nullptr || option == nullptr) return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    const bool valued = vex::config::takesValue(*option);
    const char *metavar = valued ? vex::config::metavarOf(*option) : "",
               *equals = valued ? "=" : "";
    int length = -1;
    if (option->short_name != 0 && option->long_name != nullptr)
        length = snprintf(buf, size, "-%c, --%s%s%s", option->short_name, option->long_name, equals,
                          metavar);
    else if (option->short_name != 0)
        length = snprintf(buf, size, "-%c %s", option->short_name, metavar);
    else if (option->long_name != nullptr)
        length = snprintf(buf, size, "--%s%s%s", option->long_name, equals, metavar);
    else
        return VEX_FAIL_AS(__func__, -1, EINVAL, -1, "internal error: option without option name");
    if (length < 0 || static_cast<size_t>(length) >= size)
        return VEX_FAIL_AS(__func__, ENOBUFS, ENOBUFS, -1, "target buffer too small");
    return length;
}
