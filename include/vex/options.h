/**
 * @file options.h
 * @ingroup config
 * A table-driven command-line parser whose options can also come from an ini file.
 *
 * A program declares its options once, as an array of pointers to opt_option that ends in NULL.
 * opt_parse checks the table, gives every option its default or the value from the ini file named
 * by the option of type OPT_TYPE_INI_FILE, applies the command line over that, and checks that
 * mandatory options were given. opt_fprintf_help prints the usage from the same table. The switches
 * that all tools share are _checkCommonArgs's.
 *
 * The program owns table, records and variables; the parser writes the records' upper flags and the
 * variables, and owns the strings it stores (until opt_free). Every error is logged at error level
 * and gives -1 with errno; values set before it stay set. The values of options with
 * OPT_HIDE_DEFAULT never reach the log.
 *
 * @threads a table belongs to one thread at a time.
 */
#ifndef VEX_OPTIONS_H
#define VEX_OPTIONS_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include <vex/export.h>

/** Types of options, and of the variables that opt_option.value points to. */
#define OPT_TYPE_FLAG_OFF 1 /**< bool: true, the switch makes it false; takes no value */
#define OPT_TYPE_FLAG_ON 2  /**< bool: false, the switch makes it true; takes no value */
#define OPT_TYPE_STRING 4   /**< char * */
#define OPT_TYPE_UTF8 \
    5 /**< char *: converted from the locale's character set to UTF-8, save for the default */
#define OPT_TYPE_PATH 6 /**< char * */
#define OPT_TYPE_INI_FILE \
    7 /**< char *: path of the ini file that the other options are read from */
#define OPT_TYPE_NUMBER64 8    /**< uint64_t: decimal, no '-' */
#define OPT_TYPE_NUMBER32 9    /**< uint32_t */
#define OPT_TYPE_NUMBER16 10   /**< uint16_t */
#define OPT_TYPE_SIZE64 11     /**< uint64_t: bytes, with the units of strtosize */
#define OPT_TYPE_SIZE32 12     /**< uint32_t */
#define OPT_TYPE_SIZE16 13     /**< uint16_t */
#define OPT_TYPE_BOOLEAN 14    /**< bool: the words of strtobool */
#define OPT_TYPE_RAW_STRING 15 /**< char *: taken as it is */

/** Flags of an option; the program sets the first two, the parser the others. */
#define OPT_MANDATORY \
    (UINT64_C(1) << 0) /**< must be given, by default or ini file if not by command line */
#define OPT_HIDE_DEFAULT \
    (UINT64_C(1) << 2) /**< a secret: help and messages print "(hidden)" for its value */
#define OPT_FROM_INI \
    (UINT64_C(1) << 61) /**< on the ini file option: values were read from its file */
#define OPT_VALUE_ALLOCATED \
    (UINT64_C(1) << 62)             /**< the variable holds a string that opt_free frees */
#define OPT_SET (UINT64_C(1) << 63) /**< the variable has been set */

VEX_BEGIN_DECLS

/** A heading in the help; options with the same group stand together in the table. */
typedef struct opt_group {
    const char *title; /**< without colon */
} opt_group;

/** One option. */
/* the order of the fields is the interface's: programs initialise by position
 * NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding) */
typedef struct opt_option {
    const char *help;       /**< free text, wrapped when printed; newlines stay; NULL for none */
    const opt_group *group; /**< NULL for no heading */
    char short_name;        /**< 0 for none; not '-' */
    const char *long_name; /**< without dashes, not empty; NULL for none; an option needs one of the
                              two names */
    int type;              /**< OPT_TYPE_... */
    const char *metavar; /**< shown for the value; NULL for the type's own, see opt_type_metavars */
    const char
        *default_value; /**< in the command line's syntax; NULL for none; ignored for flags */
    const char
        *ini_section; /**< with ini_key: where in the ini file the value stands; both or neither */
    const char *ini_key; /**< see ini_section */
    uint64_t flags;      /**< OPT_... */
    void *value;         /**< the program's variable, of the type's kind; a char * starts as NULL */
} opt_option;

/** The name that stands for a value in help and errors, by type; NULL where the type takes no
 * value. */
VEX_API extern const char *const opt_type_metavars[16];

/**
 * Parses a command line.
 *
 * "-x VALUE", "-xVALUE", "--name VALUE" and "--name=VALUE" give a value; a separate value must not
 * begin with '-'.
 * "-x" and "--name" are flags. "--" ends the options, and so does the first argument that is none
 * ("-" is none). Names match whole. A later value replaces an earlier one. The ini file option is
 * found wherever it stands.
 *
 * @param options  table that ends in NULL.
 * @param argc     entries of @p argv.
 * @param argv     argc entries; argv[0] is skipped.
 * @return index in argv of the first argument that is no option (argc when there is none), or -1
 * with errno: EINVAL, ERANGE for a number beyond its type, ENOBUFS for an ini value of 1024 bytes
 * and more, EILSEQ, ENOMEM.
 * @logs one line per error, before it those of strtosize and strtobool; one for each missing
 * mandatory option.
 * @note Options with ini section and key that the ini file has not are stored there, empty, in
 * memory: call opt_free before InifileFlushAll.
 */
VEX_API int opt_parse(opt_option **options, int argc, char **argv);

/**
 * Prints the usage line and a description of every option, at most 72 columns wide.
 *
 * @param out           open for writing.
 * @param progname      as the usage line shows it.
 * @param flags         reserved; pass 0.
 * @param argv          the program's arguments, ending in NULL, searched for the ini file whose
 *                      values are shown as defaults; NULL for the table's ini file. Nothing is
 *                      stored in the program's variables.
 * @param options       table that ends in NULL.
 * @param argsSynopsis  what follows the options; NULL for nothing.
 * @return 0, or -1 with errno: EINVAL, ENOMEM, what writing left.
 */
VEX_API int opt_fprintf_help(FILE *out, const char *progname, int flags, char **argv,
                             opt_option **options, const char *argsSynopsis);

/**
 * Prints an option's name as people type it: "-p, --port=NUMBER", "-p NUMBER", "--port=NUMBER".
 * @return its length without NUL, or -1 with errno: EINVAL for NULL or an option without name,
 * ENOBUFS.
 * @note A flag with only a short name ends in a blank: "-v ".
 */
VEX_API int opt_snprintf(char *buf, size_t size, const opt_option *option);

/** Releases the ini file that was read and the strings that the parser stored (their variables
 * become NULL), and readies the table for another opt_parse. NULL does nothing. */
VEX_API void opt_free(opt_option **options);

VEX_END_DECLS

#endif
