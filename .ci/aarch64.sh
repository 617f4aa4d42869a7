#!/usr/bin/env bash
# The library, the halftone command and the test suite cross-built for 64-bit ARM Linux and run
# under qemu-user; the golden digests must hold there as on x86-64.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
source "$root/.ci/lib.sh"
need googletest g++-aarch64-linux-gnu qemu-user file
build="$root/build-aarch64"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DHALFTONE_WERROR=ON \
  -DCMAKE_TOOLCHAIN_FILE="$root/cmake/aarch64-linux-gnu.cmake" >/dev/null
cmake --build "$build" -j "$jobs"
file -L "$build/libhalftone.so" | grep -q 'ARM aarch64' || { echo "aarch64.sh: FAILED - not an AArch64 library"; exit 1; }
qemu-aarch64 -L /usr/aarch64-linux-gnu "$build/tools/halftone" --version
ctest --test-dir "$build" --output-on-failure -j "$jobs" --timeout 900
