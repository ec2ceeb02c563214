#!/usr/bin/env bash
# Builds the libFuzzer harnesses with clang into BUILD_DIR (binaries in BUILD_DIR/bin).
#   fuzz/build.sh [BUILD_DIR]      (default: build-fuzz)
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${1:-$root/build-fuzz}"
CC=clang CXX=clang++ cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSONARCAT_FUZZ=ON >/dev/null
cmake --build "$build" --target fuzzers -j"$(nproc)"
