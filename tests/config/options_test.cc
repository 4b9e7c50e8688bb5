#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <vex/inifile.h>
#include <vex/options.h>

#include "support/faults.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

using testing::ElementsAre;

/// A program with one option of each kind.
struct Program {
    bool quiet = false, verbose = false, truth = false;
    char *text = nullptr, *utf8 = nullptr, *ini_path = nullptr, *secret = nullptr;
    uint64_t number = 0, size = 0;
    uint32_t size32 = 0;
    uint16_t port = 0;

    opt_group general{"General"}, network{"Network"};
    opt_option options[11] = {
        {"Print nothing.", &general, 'q', "loud", OPT_TYPE_FLAG_OFF, nullptr, nullptr, nullptr,
         nullptr, 0, &quiet},
        {nullptr, &general, 'v', nullptr, OPT_TYPE_FLAG_ON, nullptr, nullptr, nullptr, nullptr, 0,
         &verbose},
        {nullptr, &general, 0, "text", OPT_TYPE_STRING, nullptr, "none", "s", "text", 0, &text},
        {nullptr, &general, 0, "text-utf8", OPT_TYPE_UTF8, "WORD", nullptr, nullptr, nullptr, 0,
         &utf8},
        {nullptr, nullptr, 'i', "ini", OPT_TYPE_INI_FILE, nullptr, nullptr, nullptr, nullptr, 0,
         &ini_path},
        {"Where to listen.\n\tThe number of a port that is free on this machine, which is one that "
         "no other program "
         "has\nextraordinarilylongwordthatdoesnotfitintoalineofseventytwocolumnsatall end",
         &network, 'p', "port", OPT_TYPE_NUMBER16, nullptr, "80", "s", "port", OPT_MANDATORY,
         &port},
        {nullptr, &network, 'n', "number", OPT_TYPE_NUMBER64, nullptr, nullptr, nullptr, nullptr, 0,
         &number},
        {nullptr, &network, 's', nullptr, OPT_TYPE_SIZE64, nullptr, nullptr, nullptr, nullptr, 0,
         &size},
        {nullptr, &network, 0, "size32", OPT_TYPE_SIZE32, nullptr, nullptr, nullptr, nullptr, 0,
         &size32},
        {nullptr, &network, 'b', "bool", OPT_TYPE_BOOLEAN, nullptr, nullptr, nullptr, nullptr, 0,
         &truth},
        {nullptr, &network, 0, "secret", OPT_TYPE_RAW_STRING, nullptr, "hush", nullptr, nullptr,
         OPT_HIDE_DEFAULT, &secret},
    };
    opt_option *table[12] = {};

    Program() {
        for (size_t i = 0; i < 11; ++i) table[i] = &options[i];
    }
    ~Program() {
        opt_free(table);
        InifileReleaseAll();
    }
    int parse(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "program");
        std::vector<char *> argv;
        for (auto &argument : arguments) argv.push_back(argument.data());
        argv.push_back(nullptr);
        return opt_parse(table, static_cast<int>(arguments.size()), argv.data());
    }
    std::string state() const {
        const auto show = [](const char *string) {
            return std::string(string != nullptr ? string : "-");
        };
        return std::to_string(quiet) + std::to_string(verbose) + std::to_string(truth) + " " +
               show(text) + " " + show(utf8) + " " + std::to_string(port) + " " +
               std::to_string(number) + " " + std::to_string(size) + " " + std::to_string(size32);
    }
};

TEST(OptParse, AppliesTheCommandLineOverTheDefaults) {
    static const struct {
        std::vector<std::string> arguments;
        int result;
        const char *state;
    } kRows[] = {
        {{}, 1, "100 none - 80 0 0 0"},
        {{"file", "-v"}, 1, "100 none - 80 0 0 0"},
        {{"-v", "-q", "--", "-x"}, 4, "010 none - 80 0 0 0"},
        {{"--loud", "-", "-v"}, 2, "000 none - 80 0 0 0"},
        {{"--text", "a", "--text=b=c", "--text-utf8=\xc3\xa4"}, 5, "100 b=c \xc3\xa4 80 0 0 0"},
        {{"--text=", "-p65535", "-n", "18446744073709551615"},
         5,
         "100  - 65535 18446744073709551615 0 0"},
        {{"-s10KiB", "--size32", "4G", "-bYes"}, 5, "101 none - 80 0 10240 4000000000"},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(testing::PrintToString(row.arguments));
        vextest::LogCapture log;
        Program program;
        EXPECT_EQ(row.result, program.parse(row.arguments));
        EXPECT_EQ(row.state, program.state());
        EXPECT_THAT(log.lines(), ElementsAre());
        opt_free(program.table);
        EXPECT_EQ(nullptr, program.text);
        EXPECT_EQ(row.result, program.parse(row.arguments)) << "the table can be parsed again";
    }
}

TEST(OptParse, ReportsEachErrorInOneLineAndShowsNoSecret) {
    static const struct {
        std::vector<std::string> arguments;
        int err;
        const char *line;
    } kRows[] = {
        {{"-x"}, EINVAL, "invalid option -x"},
        {{"--tex=top secret"}, EINVAL, "invalid option --tex"},
        {{"--textual=a"}, EINVAL, "invalid option --textual"},
        {{"-Psecret"}, EINVAL, "invalid option -P"},
        {{"-vx"}, EINVAL, "option -v does not accept a value"},
        {{"--loud=1"}, EINVAL, "option --loud does not accept a value"},
        {{"-p"}, EINVAL, "option -p requires a NUMBER value"},
        {{"-p", "-1"}, EINVAL, "option -p requires a NUMBER value"},
        {{"--text-utf8", "--loud"}, EINVAL, "option --text-utf8 requires a WORD value"},
        {{"-p65536"}, ERANGE, "invalid value \"65536\" for option -p, --port=NUMBER"},
        {{"-n18446744073709551616"},
         ERANGE,
         "invalid value \"18446744073709551616\" for option -n, --number=NUMBER"},
        {{"-n=5"}, EINVAL, "invalid value \"=5\" for option -n, --number=NUMBER"},
        {{"--number="}, EINVAL, "invalid value \"\" for option -n, --number=NUMBER"},
        {{"--number=-5"}, EINVAL, "invalid value \"-5\" for option -n, --number=NUMBER"},
        {{"-sk"}, EINVAL, "invalid value \"k\" for option -s SIZE"},
        {{"-s5kx"}, EINVAL, "invalid value \"5kx\" for option -s SIZE"},
        {{"--size32=5G"}, ERANGE, "invalid value \"5G\" for option --size32=SIZE"},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.line);
        vextest::LogCapture log;
        Program program;
        errno = 0;
        EXPECT_EQ(-1, program.parse(row.arguments));
        EXPECT_EQ(row.err, errno);
        EXPECT_THAT(log.lines(), ElementsAre(std::string("opt_parse: ") + row.line));
    }
    vextest::LogCapture log;
    Program program;
    EXPECT_EQ(-1, program.parse({"-bmaybe"}));
    EXPECT_THAT(log.lines(),
                ElementsAre("34 strtobool: value outside of range",
                            "opt_parse: invalid value \"maybe\" for option -b, --bool=BOOLEAN"));
    log.clear();
    {
        const vextest::FaultScope fault("strdup", 1, ENOMEM);
        EXPECT_EQ(-1, program.parse({}));
    }
    program.options[10].flags |= OPT_MANDATORY;
    program.options[10].default_value = program.options[5].default_value = nullptr;
    opt_free(program.table);
    EXPECT_EQ(-1, program.parse({}));
    EXPECT_EQ(-1, opt_parse(nullptr, 0, nullptr));
    EXPECT_THAT(log.lines(),
                ElementsAre("opt_parse: error copying value \"none\" for option --text=STRING",
                            "opt_parse: Mandatory option -p, --port=NUMBER has not been specified",
                            "opt_parse: Mandatory option --secret=STRING has not been specified",
                            "22 opt_parse: invalid NULL parameter"));
}

TEST(OptParse, TakesValuesFromTheIniFileWhereverItIsNamed) {
    vextest::TempDir dir;
    const std::string one = dir / "one.ini", two = dir / "two.ini";
    vextest::writeFile(one, "[s]\ntext=from one\nport=1\n");
    vextest::writeFile(two, "[s]\nport=2\n");
    Program program;
    EXPECT_EQ(5, program.parse({"-v", "--text=mine", "-i", one}));
    EXPECT_EQ("110 mine - 1 0 0 0", program.state());
    EXPECT_NE(0U, program.options[4].flags & OPT_FROM_INI);
    opt_free(program.table);
    EXPECT_EQ(-1, InifileReleaseA(one.c_str())) << "opt_free released it";
    EXPECT_EQ(3, program.parse({"-i" + one, "--ini=" + two}));
    EXPECT_EQ("100 none - 2 0 0 0", program.state()) << "the last one named is read";
    opt_free(program.table);
    program.options[4].default_value = one.c_str();
    EXPECT_EQ(1, program.parse({}));
    EXPECT_EQ("100 from one - 1 0 0 0", program.state());

    opt_free(program.table);
    vextest::writeFile(one, "[s]\nport=99999\n");
    vextest::writeFile(two, "[s]\ntext=" + std::string(1024, 'x') + "\n");
    vextest::LogCapture log;
    EXPECT_EQ(-1, program.parse({}));
    EXPECT_EQ(-1, program.parse({"-i", two}));
    EXPECT_THAT(log.lines(),
                ElementsAre("opt_parse: invalid value \"99999\" for option -p, --port=NUMBER",
                            "opt_parse: value of [s] text in " + two +
                                " is too long for option --text=STRING"));
}

TEST(OptValidate, RefusesAFaultyTable) {
    const struct {
        const char *line;
        void (*spoil)(Program &);
    } rows[] = {
        {"duplicate option -v", [](Program &p) { p.options[4].short_name = 'v'; }},
        {"duplicate option --text", [](Program &p) { p.options[3].long_name = "text"; }},
        {"invalid option type 3 for option -v ", [](Program &p) { p.options[1].type = 3; }},
        {"invalid option type 16 for option -v ", [](Program &p) { p.options[1].type = 16; }},
        {"short option name cannot be '-' for option --, --loud",
         [](Program &p) { p.options[0].short_name = '-'; }},
        {"long option name cannot be empty for option -q, --",
         [](Program &p) { p.options[0].long_name = ""; }},
        {"pointer to value is NULL for option -v ",
         [](Program &p) { p.options[1].value = nullptr; }},
        {"invalid default value for option -p, --port=NUMBER",
         [](Program &p) { p.options[5].default_value = "70000"; }},
        {"ini_section without ini_key for option --text=STRING",
         [](Program &p) { p.options[2].ini_key = nullptr; }},
        {"ini_key without ini_section for option --text=STRING",
         [](Program &p) { p.options[2].ini_section = nullptr; }},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.line);
        vextest::LogCapture log;
        Program program;
        row.spoil(program);
        EXPECT_EQ(-1, program.parse({}));
        EXPECT_THAT(log.lines(), ElementsAre("opt_validate: internal option configuration error: " +
                                                 std::string(row.line),
                                             "opt_parse: invalid options"));
    }
    vextest::LogCapture log;
    Program program;
    program.options[1].short_name = 0;
    EXPECT_EQ(-1, opt_fprintf_help(stdout, "p", 0, nullptr, program.table, nullptr));
    EXPECT_THAT(log.lines(), ElementsAre("opt_snprintf: internal error: option without option name",
                                         "opt_validate: cannot print option name",
                                         "opt_fprintf_help: invalid options"));
    log.clear();
    char buf[32];
    EXPECT_EQ(17, opt_snprintf(buf, 18, &program.options[5]));
    EXPECT_EQ(-1, opt_snprintf(buf, 17, &program.options[5]));
    EXPECT_EQ(ENOBUFS, errno);
    EXPECT_THAT(log.lines(), ElementsAre("105 opt_snprintf: target buffer too small"));
}

TEST(OptHelp, ShowsNamesDefaultsAndWrappedText) {
    vextest::TempDir dir;
    const std::string path = dir / "a.ini";
    vextest::writeFile(path, "[s]\ntext=configured\n");
    Program program;
    std::string argument = "--ini=" + path, name = "program";
    char *argv[] = {name.data(), argument.data(), nullptr};
    char *text = nullptr;
    size_t size = 0;
    FILE *out = open_memstream(&text, &size);
    EXPECT_EQ(0, opt_fprintf_help(out, "program", 0, argv, program.table, "FILE..."));
    fclose(out);
    EXPECT_STREQ(
        "\nUsage: program -p NUMBER [options ...] [--] FILE...\n\nOptions marked with (*) are "
        "mandatory.\n"
        "\nGeneral:\n-q, --loud\n        Print nothing.\n-v \n"
        "--text=STRING (default: \"configured\" (configuration default))\n--text-utf8=WORD\n-i, "
        "--ini=PATHNAME\n"
        "\nNetwork:\n-p, --port=NUMBER (*) (default: 80 (application default))\n        Where to "
        "listen.\n"
        "        The number of a port that is free on this machine, which is one\n"
        "        that no other program has\n"
        "        extraordinarilylongwordthatdoesnotfitintoalineofseventytwocolumnsatall\n        "
        "end\n"
        "-n, --number=NUMBER\n-s SIZE\n--size32=SIZE\n-b, --bool=BOOLEAN\n"
        "--secret=STRING (default: (hidden) (application default))\n",
        text);
    free(text);
    EXPECT_EQ(nullptr, program.ini_path) << "nothing is stored";

    vextest::LogCapture log;
    out = fopen("/dev/full", "w");
    setvbuf(out, nullptr, _IONBF, 0);
    EXPECT_EQ(-1, opt_fprintf_help(out, "program", 0, nullptr, program.table, nullptr));
    EXPECT_EQ(ENOSPC, errno);
    fclose(out);
    EXPECT_THAT(log.lines(), ElementsAre("opt_fprintf_help: could not print usage line"));
}

}  // namespace
