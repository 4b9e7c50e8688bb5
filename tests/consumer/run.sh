#!/usr/bin/env bash
# usage: run.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build=$1 source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/usr" >/dev/null

cmake -S "$source/project" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$work/usr" >/dev/null
cmake --build "$work/cmake" >/dev/null
"$work/cmake/consumer"

libdir=$(dirname "$(find "$work/usr" -name libvex.so -o -name libvex.a | head -n 1)")
static=()
if [ ! -e "$libdir/libvex.so" ]; then static=(--static); fi
# the file names the prefix that the build was configured for
export PKG_CONFIG_PATH="$libdir/pkgconfig"
flags=$(pkg-config --define-variable=prefix="$work/usr" "${static[@]}" --cflags --libs vex)
# shellcheck disable=SC2086
c++ ${CXXFLAGS:-} -std=c++17 "$source/project/main.cc" $flags -o "$work/consumer"
LD_LIBRARY_PATH="$libdir" "$work/consumer"
# shellcheck disable=SC2086
cc ${CXXFLAGS:-} -std=c11 "$source/project/main.c" $flags -o "$work/consumer_c"
LD_LIBRARY_PATH="$libdir" "$work/consumer_c"
echo "consumer: find_package, pkg-config, and C work"
