#!/usr/bin/env bash
# The library and its whole test suite built as 32-bit x86 Linux programs (-m32, SSE2 doubles)
# and run: the golden digests must hold there as on x86-64. This is also where the 32-bit
# Windows DLL's code is proven when Wine cannot run 32-bit programs.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
source "$root/.ci/lib.sh"
# The 32-bit runtime packages g++-multilib would pull, without it: g++-multilib conflicts with
# Debian's AArch64 cross compiler, which the AArch64 stage needs on the same machine.
need googletest "lib32stdc++-${gcc_major}-dev" "lib32gcc-${gcc_major}-dev" libc6-dev-i386
build="$root/build-m32"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DHALFTONE_WERROR=ON \
  -DCMAKE_TOOLCHAIN_FILE="$root/cmake/linux-i686.cmake" >/dev/null
cmake --build "$build" -j "$jobs"
file -L "$build/libhalftone.so" | grep -q 'ELF 32-bit' || { echo "m32.sh: FAILED - not a 32-bit library"; exit 1; }
ctest --test-dir "$build" --output-on-failure -j "$jobs"
