#!/usr/bin/env bash
# The tests that run the library on more than one thread, under ThreadSanitizer: two host
# threads against the call gate, planes spread over the library's own threads, the shared-out
# draws and the per-thread random source of the lookup routines. Any report fails the stage.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
source "$root/.ci/lib.sh"
need
build="$root/build-tsan"
cmake -S "$root" -B "$build" -G Ninja -DHALFTONE_SANITIZE=thread -DHALFTONE_WERROR=ON \
  -DHALFTONE_BUILD_TOOLS=OFF >/dev/null
cmake --build "$build" -j "$jobs" --target halftone_tests
export TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1"
ctest --test-dir "$build" --output-on-failure -j "$jobs" \
  -R 'HostThreads|PlaneThreads|DrawBandBytes|SameOnTwoThreads|CrtRand|JobSignals|AutoResetEvent'
