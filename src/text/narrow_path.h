#ifndef VEX_TEXT_NARROW_PATH_H
#define VEX_TEXT_NARROW_PATH_H

#include <errno.h>
#include <limits.h>

#include <vex/encoding.h>

namespace vex::text {

/// A wide path in the form that the system takes. Not good, with EINVAL, EILSEQ or ENAMETOOLONG,
/// when it has none.
class NarrowPath {
public:
    explicit NarrowPath(const wchar_t *path)
        : good_(vex_wcs_to_utf8(path, text_, sizeof text_) >= 0) {
        if (!good_ && errno == ENOBUFS) errno = ENAMETOOLONG;
    }
    bool good() const { return good_; }
    const char *text() const { return text_; }

private:
    char text_[PATH_MAX];
    bool good_;
};

}  // namespace vex::text

#endif
