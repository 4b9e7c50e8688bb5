#ifndef VEX_BASE_C_LOCALE_H
#define VEX_BASE_C_LOCALE_H

#include <locale.h>

namespace vex {

/// The "C" locale for the *_l functions: numbers in files read and print alike whatever the
/// process's locale is. The C library hands out a static object for it, so this neither allocates
/// nor fails.
inline locale_t cLocale() {
    static const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
    return locale;
}

}  // namespace vex

#endif
