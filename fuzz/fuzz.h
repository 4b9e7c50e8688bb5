// What the fuzz targets share.
#ifndef VEXFUZZ_FUZZ_H
#define VEXFUZZ_FUZZ_H

#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include <vex/vex.h>

/// Ends the process where a promise is broken, which the fuzzer notes.
inline void require(bool promise) {
    if (!promise) abort();
}

#endif
