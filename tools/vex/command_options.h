// The options of one command, all declared the same way: by long name, kind and place of the value.
#ifndef VEX_TOOL_COMMAND_OPTIONS_H
#define VEX_TOOL_COMMAND_OPTIONS_H

#include <deque>
#include <vector>

#include <vex/options.h>

namespace tool {

/// Values that are texts last as long as this does.
class CommandOptions {
public:
    CommandOptions() = default;
    CommandOptions(const CommandOptions &) = delete;
    CommandOptions &operator=(const CommandOptions &) = delete;
    ~CommandOptions() {
        table_.push_back(nullptr);
        opt_free(table_.data());
    }

    /// @p standard is what the value is without the option, in the command line's syntax.
    opt_option &add(const char *name, int type, void *value, const char *standard = nullptr) {
        opt_option &option = options_.emplace_back();
        option.long_name = name;
        option.type = type;
        option.default_value = standard;
        option.value = value;
        table_.push_back(&option);
        return option;
    }
    opt_option &flag(const char *name, bool *value) { return add(name, OPT_TYPE_FLAG_ON, value); }

    /// The place of the first argument that is no option, or -1 after a report.
    int parse(int argc, char **argv) {
        table_.push_back(nullptr);
        const int first = opt_parse(table_.data(), argc, argv);
        table_.pop_back();
        return first;
    }

private:
    std::deque<opt_option> options_;
    std::vector<opt_option *> table_;
};

}  // namespace tool

#endif
