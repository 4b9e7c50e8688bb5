// What the parts of the option parser share.
#ifndef VEX_CONFIG_OPTIONS_INTERNAL_H
#define VEX_CONFIG_OPTIONS_INTERNAL_H

#include <string>
#include <string_view>

#include <vex/options.h>

#include "log/report.h"

namespace vex::config {

inline bool takesValue(const opt_option &option) {
    return option.type >= 3;
}
inline bool isText(int type) {
    return (type >= OPT_TYPE_STRING && type <= OPT_TYPE_INI_FILE) || type == OPT_TYPE_RAW_STRING;
}

/// The metavar of the option or else of its type; "" when there is none.
const char *metavarOf(const opt_option &option);

/// The display name of a validated option.
std::string nameOf(const opt_option &option);

/// Checks the whole table; -1 after one log line at the first fault.
int opt_validate(opt_option *const *options);

/// Where a value comes from: a default for text is stored without conversion.
enum class Origin { kDefault, kGiven };

/// Whether a text converts to the option's type; when not, errno is EINVAL or ERANGE. Stores
/// nothing.
bool converts(const opt_option &option, const char *text);

/// Converts a text and stores it in the program's variable; -1 after one log line.
int store(opt_option &option, const char *text, Origin origin);

/// Sets a flag's variable: @p given tells whether the switch stands on the command line.
void storeFlag(opt_option &option, bool given);

/// One argument taken apart.
struct Argument {
    opt_option *option = nullptr;    // nullptr when the table has no such option
    const char *attached = nullptr;  // a value in the same argument
    bool is_long = false;
};

/// Whether an argument is an option: it begins with '-', but is neither "-" nor "--".
bool isOption(const char *argument);
Argument takeApart(opt_option *const *options, const char *argument);

/// The ini file option that the command line gives, with its value, or else the first one of the
/// table with its default; option is nullptr when the table has none, value when it has no value.
struct IniFile {
    opt_option *option = nullptr;
    const char *value = nullptr;
    bool given = false;
};
IniFile findIniFile(opt_option *const *options, int argc, char *const *argv);

/// Room for a value read from an ini file, NUL included.
inline constexpr int kIniValueRoom = 1024;

}  // namespace vex::config

/// One error line without code in the name of an exported function; yields -1.
#define VEX_OPTION_FAULT(who, ...) VEX_FAIL_AS((who), -1, EINVAL, -1, __VA_ARGS__)

#endif
