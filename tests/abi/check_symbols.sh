#!/usr/bin/env bash
# usage: check_symbols.sh LIBRARY LIST   compares what the library exports with the list; a new name is added there on purpose
set -euo pipefail
nm -D --defined-only "$1" | awk '{print $3}' | sed 's/@@.*//' | grep -vx VEX_6 | LC_ALL=C sort -u | diff -u "$2" - &&
    echo "exported symbols: as listed"
