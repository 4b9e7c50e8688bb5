#!/usr/bin/env python3
"""Prints src/crypto/blowfish_tables.cc: the first 1042 words of the binary fraction of pi, which are Blowfish's initial
P-array and S-boxes."""

P_WORDS = 18
BOX_WORDS = 256
WORDS = P_WORDS + 4 * BOX_WORDS
GUARD_BITS = 64


def arctan_inverse(x, one):
    """arctan(1 / x) in fixed point, by its alternating series."""
    total = term = one // x
    divisor, sign = 3, -1
    while term:
        term //= x * x
        total += sign * (term // divisor)
        divisor, sign = divisor + 2, -sign
    return total


def fraction_words():
    bits = WORDS * 32
    one = 1 << (bits + GUARD_BITS)
    pi = 4 * (4 * arctan_inverse(5, one) - arctan_inverse(239, one))  # Machin
    fraction = (pi - 3 * one) >> GUARD_BITS
    return [(fraction >> (bits - 32 * (i + 1))) & 0xFFFFFFFF for i in range(WORDS)]


def rows(words, indent):
    for i in range(0, len(words), 8):
        yield ' ' * indent + ' '.join(f'0x{word:08x},' for word in words[i:i + 8])


def main():
    words = fraction_words()
    print('// Made by scripts/make_blowfish_tables.py: the hexadecimal digits of pi behind the point.')
    print('#include "crypto/blowfish_tables.h"\n')
    print('namespace vex::crypto {\n')
    print('// clang-format off')
    print(f'const uint32_t kPiP[{P_WORDS}] = {{')
    print('\n'.join(rows(words[:P_WORDS], 4)))
    print('};\n')
    print(f'const uint32_t kPiS[4][{BOX_WORDS}] = {{')
    for box in range(4):
        start = P_WORDS + box * BOX_WORDS
        print('    {')
        print('\n'.join(rows(words[start:start + BOX_WORDS], 8)))
        print('    },')
    print('};')
    print('// clang-format on\n')
    print('}  // namespace vex::crypto')


if __name__ == '__main__':
    main()
