// Integers at unaligned addresses in a stated byte order, whatever the host's is.
#ifndef VEX_BASE_ENDIAN_H
#define VEX_BASE_ENDIAN_H

#include <endian.h>

#include <cstdint>
#include <cstring>

namespace vex {

inline void storeBig16(void *to, uint16_t value) {
    value = htobe16(value);
    std::memcpy(to, &value, sizeof value);
}
inline void storeBig32(void *to, uint32_t value) {
    value = htobe32(value);
    std::memcpy(to, &value, sizeof value);
}
inline void storeBig64(void *to, uint64_t value) {
    value = htobe64(value);
    std::memcpy(to, &value, sizeof value);
}
inline uint16_t loadBig16(const void *from) {
    uint16_t value;
    std::memcpy(&value, from, sizeof value);
    return be16toh(value);
}
inline uint32_t loadBig32(const void *from) {
    uint32_t value;
    std::memcpy(&value, from, sizeof value);
    return be32toh(value);
}
inline uint64_t loadBig64(const void *from) {
    uint64_t value;
    std::memcpy(&value, from, sizeof value);
    return be64toh(value);
}
inline uint64_t loadLittle64(const void *from) {
    uint64_t value;
    std::memcpy(&value, from, sizeof value);
    return le64toh(value);
}

}  // namespace vex

#endif
