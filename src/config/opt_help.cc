// The usage text, made from the same table that the command line is parsed with.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <string>

#include <vex/inifile.h>

#include "config/options_internal.h"

namespace vex::config {
namespace {

constexpr const char *kWho = "opt_fprintf_help";
constexpr size_t kColumns = 72;
constexpr const char *kIndent = "        ";
constexpr size_t kIndentColumns = 8;

bool write(FILE *out, const std::string &text) {
    return std::fputs(text.c_str(), out) >= 0;
}

std::string shortestForm(const opt_option &option) {
    const char *metavar = takesValue(option) ? metavarOf(option) : "";
    std::string form(option.short_name != 0 ? "-" : "--");
    if (option.short_name != 0)
        form.append(1, option.short_name).append(" ");
    else
        form.append(option.long_name).append(takesValue(option) ? "=" : "");
    return form.append(metavar);
}

/// What follows the program's name in the usage line.
std::string usageArguments(opt_option *const *options, const char *synopsis) {
    std::string line;
    bool optional = false;
    for (; *options != nullptr; ++options) {
        if (((*options)->flags & OPT_MANDATORY) != 0)
            line.append(" ").append(shortestForm(**options));
        else
            optional = true;
    }
    if (optional) line += " [options ...]";
    line += " [--]";
    if (synopsis != nullptr) line.append(" ").append(synopsis);
    return line.append("\n\nOptions marked with (*) are mandatory.\n");
}

std::string defaultText(const opt_option &option, const char *ini_path) {
    char from_ini[kIniValueRoom] = "";
    // asking first keeps a file that is only looked at free of empty entries
    if (ini_path != nullptr && option.ini_section != nullptr && takesValue(option) &&
        InifileValueExistsA(option.ini_section, option.ini_key, ini_path) == 0)
        (void)InifileGetValueA(option.ini_section, option.ini_key, from_ini, sizeof from_ini, "",
                               ini_path);
    const bool configured = *from_ini != '\0';
    if (!configured && option.default_value == nullptr) return "";
    std::string text = " (default: ";
    const char *quote = isText(option.type) ? "\"" : "";
    if ((option.flags & OPT_HIDE_DEFAULT) != 0)
        text += "(hidden)";
    else
        text.append(quote).append(configured ? from_ini : option.default_value).append(quote);
    return text.append(configured ? " (configuration default))" : " (application default))");
}

size_t columns(std::string_view word) {
    size_t n = 0;
    for (const char c : word)
        n += (static_cast<unsigned char>(c) & 0xc0U) != 0x80U;  // UTF-8 counts by first bytes
    return n;
}

/// One line of help text, wrapped at blanks; a word that is too long stands alone.
int writeWrapped(FILE *out, std::string_view text) {
    std::string line;
    size_t width = 0;
    const auto flush = [&] {
        if (!line.empty() && !write(out, kIndent))
            return VEX_FAIL_AS(kWho, -1, errno, -1, "could not print indentation");
        if (!write(out, line + "\n"))
            return VEX_FAIL_AS(kWho, -1, errno, -1, "could not print line");
        line.clear();
        width = 0;
        return 0;
    };
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find_first_of(" \t", at), text.size());
        const std::string_view word = text.substr(at, end - at);
        at = end + 1;
        if (word.empty()) continue;
        if (width > 0 && kIndentColumns + width + 1 + columns(word) > kColumns && flush() != 0)
            return -1;
        if (width > 0) line += ' ';
        width += (width > 0 ? 1 : 0) + columns(word);
        line += word;
    }
    return flush();
}

int writeHelpText(FILE *out, std::string_view text) {
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        if (writeWrapped(out, text.substr(0, end)) != 0) return -1;
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return 0;
}

int writeOptions(FILE *out, opt_option *const *options, const char *ini_path) {
    const opt_group *group = nullptr;
    for (; *options != nullptr; ++options) {
        const opt_option &option = **options;
        std::string line;
        if (option.group != group && option.group != nullptr)
            line = std::string("\n") + option.group->title + ":\n";
        group = option.group;
        line += nameOf(option);
        if ((option.flags & OPT_MANDATORY) != 0) line += " (*)";
        line += defaultText(option, ini_path) + "\n";
        if (!write(out, line)) return VEX_FAIL_AS(kWho, -1, errno, -1, "could not write line");
        if (option.help != nullptr && writeHelpText(out, option.help) != 0) return -1;
    }
    return 0;
}

}  // namespace
}  // namespace vex::config

using namespace vex::config;

int opt_fprintf_help(FILE *out, const char *progname, int /*flags*/, char **argv,
                     opt_option **options, const char *argsSynopsis) {
    if (out == nullptr || progname == nullptr || options == nullptr)
        return VEX_FAIL(EINVAL, -1, "invalid NULL parameter");
    return vex::guard(__func__, -1, [&] {
        if (opt_validate(options) != 0)
            return VEX_FAIL_AS("opt_fprintf_help", -1, EINVAL, -1, "invalid options");
        if (std::fprintf(out, "\nUsage: %s", progname) < 0)
            return VEX_FAIL_AS(kWho, -1, errno, -1, "could not print usage line");
        if (!write(out, usageArguments(options, argsSynopsis)))
            return VEX_FAIL_AS(kWho, -1, errno, -1, "could not write usage line");
        const IniFile ini = findIniFile(options, argv != nullptr ? INT_MAX : 0, argv);
        return writeOptions(out, options, ini.value);
    });
}
