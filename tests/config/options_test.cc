#include "support/test.h"

namespace {

/// A program with one option of each kind.
struct Program {
    bool quiet = false, verbose = false, truth = false;
    char *text = nullptr, *utf8 = nullptr, *ini_path = nullptr, *secret = nullptr;
    uint64_t number = 0, size = 0;
    uint32_t size32 = 0;
    uint16_t port = 0;

    opt_group general{"General"}, network{"Network"};
    opt_option options[11] = {make('q', "loud", OPT_TYPE_FLAG_OFF, &quiet),
        make('v', nullptr, OPT_TYPE_FLAG_ON, &verbose), make(0, "text", OPT_TYPE_STRING, &text),
        make(0, "text-utf8", OPT_TYPE_UTF8, &utf8), make('i', "ini", OPT_TYPE_INI_FILE, &ini_path),
        make('p', "port", OPT_TYPE_NUMBER16, &port), make('n', "number", OPT_TYPE_NUMBER64, &number),
        make('s', nullptr, OPT_TYPE_SIZE64, &size), make(0, "size32", OPT_TYPE_SIZE32, &size32),
        make('b', "bool", OPT_TYPE_BOOLEAN, &truth), make(0, "secret", OPT_TYPE_RAW_STRING, &secret)};
    opt_option *table[12] = {};

    static opt_option make(char short_name, const char *long_name, int type, void *value) {
        return {nullptr, nullptr, short_name, long_name, type, nullptr, nullptr, nullptr, nullptr, 0, value};
    }
    Program() {
        for (size_t i = 0; i < 11; ++i) table[i] = &options[i];
        for (size_t i = 0; i < 11; ++i) options[i].group = i < 4 ? &general : i == 4 ? nullptr : &network;
        options[0].help = "Print nothing.";
        options[2].default_value = "none", options[5].default_value = "80", options[10].default_value = "hush";
        options[2].ini_section = options[5].ini_section = "s";
        options[2].ini_key = "text", options[5].ini_key = "port";
        options[3].metavar = "WORD";
        options[5].flags = OPT_MANDATORY, options[10].flags = OPT_HIDE_DEFAULT;
        options[5].help =
            "Where to listen.\n\tThe number of a port that is free on this machine, which is one that no other program "
            "has\nextraordinarilylongwordthatdoesnotfitintoalineofseventytwocolumnsatall end";
    }
    ~Program() {
        opt_free(table);
        InifileReleaseAll();
    }
    /// Parses words separated by blanks: "<result>: <the variables>", or "<errno> <log lines>".
    std::string parse(const std::string &words) {
        LogCapture log;
        std::istringstream in("program " + words);
        std::vector<std::string> arguments{std::istream_iterator<std::string>(in), {}};
        std::vector<char *> argv;
        for (auto &argument : arguments) argv.push_back(argument.data());
        argv.push_back(nullptr);
        errno = 0;
        const int result = opt_parse(table, static_cast<int>(arguments.size()), argv.data());
        if (result < 0) return strerrorname_np(errno) + (" " + log.text());
        EXPECT_EQ("", log.text());
        std::ostringstream out;
        out << result << ": " << quiet << verbose << truth << " " << text << " " << (utf8 != nullptr ? utf8 : "-")
            << " " << port << " " << number << " " << size << " " << size32;
        return out.str();
    }
};

TEST(OptParse, AppliesTheCommandLineOverTheDefaultsAndReportsEachErrorOnce) {
    const std::string rows =
        "|1: 100 none - 80 0 0 0|file -v|1: 100 none - 80 0 0 0|-v -q -- -x|4: 010 none - 80 0 0 0|"
        "--loud - -v|2: 000 none - 80 0 0 0|--text a --text=b=c --text-utf8=\xc3\xa4|5: 100 b=c \xc3\xa4 80 0 0 0|"
        "--text= -p65535 -n 18446744073709551615|5: 100  - 65535 18446744073709551615 0 0|"
        "-s10KiB --size32 4G -bYes|5: 101 none - 80 0 10240 4000000000|"
        "-p65536|ERANGE opt_parse: invalid value \"65536\" for option -p, --port=NUMBER|"
        "--size32=5G|ERANGE opt_parse: invalid value \"5G\" for option --size32=SIZE|"
        "-bmaybe|EINVAL 34 strtobool: value outside of range\nopt_parse: invalid value \"maybe\" for option -b, "
        "--bool=BOOLEAN|";
    const std::string refused =
        "-x|invalid option -x|--tex=secret|invalid option --tex|--textual=a|invalid option --textual|"
        "-Psecret|invalid option -P|-vx|option -v does not accept a value|"
        "--loud=1|option --loud does not accept a value|-p|option -p requires a NUMBER value|"
        "-p -1|option -p requires a NUMBER value|--text-utf8 --loud|option --text-utf8 requires a WORD value|"
        "-n=5|invalid value \"=5\" for option -n, --number=NUMBER|"
        "--number=|invalid value \"\" for option -n, --number=NUMBER|"
        "--number=-5|invalid value \"-5\" for option -n, --number=NUMBER|"
        "-sk|invalid value \"k\" for option -s SIZE|-s5kx|invalid value \"5kx\" for option -s SIZE|";
    std::vector<std::vector<std::string>> all = table(2, rows);
    for (const auto &row : table(2, refused)) all.push_back({row[0], "EINVAL opt_parse: " + row[1]});
    for (const auto &row : all) {
        Program program;
        EXPECT_EQ(row[1], program.parse(row[0]));
        opt_free(program.table);
        EXPECT_EQ(nullptr, program.text);
        EXPECT_EQ(row[1], program.parse(row[0])) << "the table can be parsed again";
    }
    Program program;
    {
        const FaultScope fault("strdup", 1, ENOMEM);
        EXPECT_EQ("ENOMEM opt_parse: error copying value \"none\" for option --text=STRING", program.parse(""));
    }
    program.options[10].flags |= OPT_MANDATORY;
    program.options[10].default_value = program.options[5].default_value = nullptr;
    EXPECT_EQ(
        "EINVAL opt_parse: Mandatory option -p, --port=NUMBER has not been specified\nopt_parse: Mandatory option "
        "--secret=STRING has not been specified",
        program.parse(""));
}

TEST(OptParse, TakesValuesFromTheIniFileWhereverItIsNamed) {
    TempDir dir;
    const std::string one = dir / "one.ini", two = dir / "two.ini";
    writeFile(one, "[s]\ntext=from_one\nport=1\n");
    writeFile(two, "[s]\nport=2\n");
    Program program;
    EXPECT_EQ("5: 110 mine - 1 0 0 0", program.parse("-v --text=mine -i " + one));
    EXPECT_NE(0U, program.options[4].flags & OPT_FROM_INI);
    opt_free(program.table);
    EXPECT_EQ(-1, InifileReleaseA(one.c_str())) << "opt_free released it";
    EXPECT_EQ("3: 100 none - 2 0 0 0", program.parse("-i" + one + " --ini=" + two)) << "the last one";
    opt_free(program.table);
    {
        const FaultScope no_memory("malloc", 1, ENOMEM);
        EXPECT_THAT(program.parse("-i" + one), StartsWith("ENOMEM 90 Could not allocate ")) << "and no default instead";
    }
    opt_free(program.table);
    program.options[4].default_value = one.c_str();
    EXPECT_EQ("1: 100 from_one - 1 0 0 0", program.parse(""));
    opt_free(program.table);
    writeFile(one, "[s]\nport=99999\n");
    writeFile(two, "[s]\ntext=" + std::string(1024, 'x') + "\n");
    EXPECT_EQ("ERANGE opt_parse: invalid value \"99999\" for option -p, --port=NUMBER", program.parse(""));
    EXPECT_EQ("ENOBUFS opt_parse: value of [s] text in " + two + " is too long for option --text=STRING",
        program.parse("-i " + two));
}

TEST(OptValidate, RefusesAFaultyTable) {
    const std::pair<std::string, void (*)(opt_option *)> rows[] = {
        {"duplicate option -v", [](auto *o) { o[4].short_name = 'v'; }},
        {"duplicate option --text", [](auto *o) { o[3].long_name = "text"; }},
        {"invalid option type 3 for option -v ", [](auto *o) { o[1].type = 3; }},
        {"invalid option type 16 for option -v ", [](auto *o) { o[1].type = 16; }},
        {"short option name cannot be '-' for option --, --loud", [](auto *o) { o->short_name = '-'; }},
        {"long option name cannot be empty for option -q, --", [](auto *o) { o->long_name = ""; }},
        {"pointer to value is NULL for option -v ", [](auto *o) { o[1].value = nullptr; }},
        {"invalid default value for option -p, --port=NUMBER", [](auto *o) { o[5].default_value = "x"; }},
        {"ini_section without ini_key for option --text=STRING", [](auto *o) { o[2].ini_key = nullptr; }},
        {"ini_key without ini_section for option --text=STRING", [](auto *o) { o[2].ini_section = nullptr; }},
    };
    for (const auto &[line, spoil] : rows) {
        Program program;
        spoil(program.options);
        EXPECT_EQ("EINVAL opt_validate: internal option configuration error: " + line + "\nopt_parse: invalid options",
            program.parse(""));
    }
    Program program;
    program.options[1].short_name = 0;
    EXPECT_EQ(
        "EINVAL opt_snprintf: internal error: option without option name\nopt_validate: cannot print option name\n"
        "opt_parse: invalid options",
        program.parse(""));
    char buf[32];
    EXPECT_EQ(17, opt_snprintf(buf, 18, &program.options[5]));
    EXPECT_FAILS_WITH("105 opt_snprintf: target buffer too small", -1, opt_snprintf(buf, 17, &program.options[5]));
}

TEST(OptHelp, ShowsNamesDefaultsAndWrappedText) {
    TempDir dir;
    const std::string path = dir / "a.ini";
    writeFile(path, "[s]\ntext=configured\n");
    Program program;
    std::string argument = "--ini=" + path, name = "program";
    char *argv[] = {name.data(), argument.data(), nullptr};
    testing::internal::CaptureStdout();
    EXPECT_EQ(0, opt_fprintf_help(stdout, "program", 0, argv, program.table, "FILE..."));
    EXPECT_EQ(
        "\nUsage: program -p NUMBER [options ...] [--] FILE...\n\nOptions marked with (*) are mandatory.\n"
        "\nGeneral:\n-q, --loud\n        Print nothing.\n-v \n"
        "--text=STRING (default: \"configured\" (configuration default))\n--text-utf8=WORD\n-i, --ini=PATHNAME\n"
        "\nNetwork:\n-p, --port=NUMBER (*) (default: 80 (application default))\n        Where to listen.\n"
        "        The number of a port that is free on this machine, which is one\n        that no other program has\n"
        "        extraordinarilylongwordthatdoesnotfitintoalineofseventytwocolumnsatall\n        end\n"
        "-n, --number=NUMBER\n-s SIZE\n--size32=SIZE\n-b, --bool=BOOLEAN\n"
        "--secret=STRING (default: (hidden) (application default))\n",
        testing::internal::GetCapturedStdout());
    EXPECT_EQ(nullptr, program.ini_path) << "nothing is stored";

    const vex::UniqueFile full(fopen("/dev/full", "w"));
    setvbuf(full.get(), nullptr, _IONBF, 0);
    EXPECT_FAILS_LOGGING("opt_fprintf_help: could not print usage line", ENOSPC, -1,
        opt_fprintf_help(full.get(), "program", 0, nullptr, program.table, nullptr));
}

}  // namespace
