// From the text of a value to the program's variable.
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <vex/encoding.h>
#include <vex/values.h>

#include "base/ascii.h"
#include "base/unique_ptr.h"
#include "config/options_internal.h"

namespace vex::config {
namespace {

/// What a message may show of a value: nothing of a secret.
const char *shown(const opt_option &option, const char *text) {
    return (option.flags & OPT_HIDE_DEFAULT) != 0 ? "(hidden)" : text;
}

bool refuse(int err) {
    errno = err;
    return false;
}

/// Whether a number begins with a digit, which "k", "b" and "" do not, and has no '-', which
/// strtoull would wrap.
bool looksLikeNumber(const char *text) {
    if (std::strchr(text, '-') != nullptr) return false;
    while (ascii::isSpace(*text)) ++text;
    if (*text == '+') ++text;
    return ascii::isDigit(*text);
}

uint64_t largest(int type) {
    switch (type) {
        case OPT_TYPE_NUMBER16:
        case OPT_TYPE_SIZE16:
            return UINT16_MAX;
        case OPT_TYPE_NUMBER32:
        case OPT_TYPE_SIZE32:
            return UINT32_MAX;
        default:
            return UINT64_MAX;
    }
}

bool isSize(int type) {
    return type >= OPT_TYPE_SIZE64 && type <= OPT_TYPE_SIZE16;
}
bool isNumber(int type) {
    return type >= OPT_TYPE_NUMBER64 && type <= OPT_TYPE_SIZE16;
}

bool toNumber(int type, const char *text, uint64_t &value) {
    if (!looksLikeNumber(text)) return refuse(EINVAL);
    const char *end = nullptr;
    if (isSize(type)) {
        value = strtosize(text, &end);
    } else {
        errno = 0;
        value = strtoull(text, const_cast<char **>(&end), 10);
    }
    if (errno != 0) return false;
    if (*end != '\0') return refuse(EINVAL);
    return value <= largest(type) || refuse(ERANGE);
}

bool toBool(const char *text, bool &value) {
    const char *end = nullptr;
    value = strtobool(text, &end) != 0;
    return end != text || refuse(EINVAL);
}

void putNumber(const opt_option &option, uint64_t value) {
    switch (largest(option.type)) {
        case UINT16_MAX:
            *static_cast<uint16_t *>(option.value) = static_cast<uint16_t>(value);
            break;
        case UINT32_MAX:
            *static_cast<uint32_t *>(option.value) = static_cast<uint32_t>(value);
            break;
        default:
            *static_cast<uint64_t *>(option.value) = value;
    }
}

int storeText(opt_option &option, const char *text, Origin origin) {
    const bool convert = option.type == OPT_TYPE_UTF8 && origin == Origin::kGiven;
    UniqueMalloc<char> copy(convert ? strtoutf8_malloced(text) : ::strdup(text));
    if (copy == nullptr && convert)
        return VEX_FAIL_AS("opt_parse", -1, errno, -1,
                           "error converting value \"%s\" to UTF-8 for option %s",
                           shown(option, text), nameOf(option).c_str());
    if (copy == nullptr)
        return VEX_FAIL_AS("opt_parse", -1, errno, -1, "error copying value \"%s\" for option %s",
                           shown(option, text), nameOf(option).c_str());
    char *&variable = *static_cast<char **>(option.value);
    if ((option.flags & OPT_VALUE_ALLOCATED) != 0) std::free(variable);
    variable = copy.release();
    option.flags |= OPT_VALUE_ALLOCATED | OPT_SET;
    return 0;
}

int invalidValue(const opt_option &option, const char *text) {
    return VEX_FAIL_AS("opt_parse", -1, errno, -1, "invalid value \"%s\" for option %s",
                       shown(option, text), nameOf(option).c_str());
}

}  // namespace

bool converts(const opt_option &option, const char *text) {
    uint64_t number = 0;
    bool truth = false;
    if (isNumber(option.type)) return toNumber(option.type, text, number);
    return option.type != OPT_TYPE_BOOLEAN || toBool(text, truth);
}

int store(opt_option &option, const char *text, Origin origin) {
    if (isText(option.type)) return storeText(option, text, origin);
    uint64_t number = 0;
    bool truth = false;
    if (isNumber(option.type)) {
        if (!toNumber(option.type, text, number)) return invalidValue(option, text);
        putNumber(option, number);
    } else if (option.type == OPT_TYPE_BOOLEAN) {
        if (!toBool(text, truth)) return invalidValue(option, text);
        *static_cast<bool *>(option.value) = truth;
    } else {
        return VEX_FAIL_AS("opt_parse", -1, EINVAL, -1,
                           "internal error: invalid option type %d at%s:%d", option.type, __FILE__,
                           __LINE__);
    }
    option.flags |= OPT_SET;
    return 0;
}

void storeFlag(opt_option &option, bool given) {
    *static_cast<bool *>(option.value) = given == (option.type == OPT_TYPE_FLAG_ON);
    option.flags |= OPT_SET;
}

}  // namespace vex::config
