#include <zlib.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <vex/crypt_stream.h>

const char *dcpCryptError(int code) {
    static char unknown[80];
    static thread_local char system[128];
    switch (code) {
        case VEX_STREAM_SYSTEM_ERROR:
            return strerror_r(errno, system, sizeof system);
        case VEX_STREAM_KEY_ERROR:
            return "invalid or missing key";
        case Z_STREAM_END:
        case Z_OK:
        case Z_STREAM_ERROR:
        case Z_DATA_ERROR:
        case Z_MEM_ERROR:
        case Z_BUF_ERROR:
        case Z_VERSION_ERROR:
            return zError(code);
        default:
            snprintf(unknown, sizeof unknown, "internal error: unknown error value %i", code);
            return unknown;
    }
}
