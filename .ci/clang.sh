#!/usr/bin/env bash
# The library and its test suite built with clang (warnings are errors there too) and run.
# Skips cleanly when clang is missing.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
if ! command -v clang++ >/dev/null 2>&1; then
  echo "clang: clang++ not found; skipped"
  exit 0
fi
build="$root/build-clang"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DHALFTONE_BUILD_TESTS=ON -DHALFTONE_BUILD_TOOLS=OFF >/dev/null
cmake --build "$build" -j "$(nproc 2>/dev/null || echo 2)"
ctest --test-dir "$build" --output-on-failure -j "$(nproc 2>/dev/null || echo 2)"
