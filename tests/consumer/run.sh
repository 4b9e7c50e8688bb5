#!/usr/bin/env bash
# usage: run.sh PREFIX EXAMPLES_DIR   what is installed below a prefix, as a user meets it: with find_package and pkg-config
set -euo pipefail
usr=$1 examples=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

cmake -S "$examples" -B found -DCMAKE_PREFIX_PATH="$usr" -DCMAKE_C_FLAGS="${CXXFLAGS:-}" >/dev/null
cmake --build found --target receipt example_text >/dev/null

libdir=$(dirname "$(find "$usr" -name libvex.so -o -name libvex.a | head -n 1)")
static=()
if [ ! -e "$libdir/libvex.so" ]; then static=(--static); fi
# the file names the prefix that the build was configured for
flags=$(PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --define-variable=prefix="$usr" "${static[@]}" --cflags --libs vex)
# shellcheck disable=SC2086
c++ ${CXXFLAGS:-} -std=c++20 "$examples/families/text.cc" $flags -o text
# shellcheck disable=SC2086
cc ${CXXFLAGS:-} -std=c11 "$examples/receipt/receipt.c" $flags -o receipt

export LD_LIBRARY_PATH="$libdir"
cp "$examples/receipt/receipt.ini" .
for text in found/families/example_text ./text; do [ "$("$text" hex vex)" = 766578 ]; done
for receipt in found/receipt/receipt ./receipt; do "$receipt" receipt.ini "$examples/receipt/receipt.c"; done
echo "consumer: find_package and pkg-config work, in C and in C++"
