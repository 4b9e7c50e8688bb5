#ifndef VEX_BASE_DIRECTORY_OF_H
#define VEX_BASE_DIRECTORY_OF_H

#include <string_view>

namespace vex {

/// The directory that holds a path's last component: "." for a bare name, "/" below the root. What
/// must be synced when the component is created, renamed or removed.
inline std::string_view directoryOf(std::string_view path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string_view::npos) return ".";
    return path.substr(0, slash == 0 ? 1 : slash);
}

}  // namespace vex

#endif
