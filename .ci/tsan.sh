#!/usr/bin/env bash
# The tests that run the library on more than one thread, under ThreadSanitizer: two host
# threads against the call gate, planes spread over the library's own threads, the shared-out
# draws, the per-thread random source of the lookup routines, and the command's band pipeline
# (reader, library and writers on threads of their own). Any report fails the stage.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
source "$root/.ci/lib.sh"
need
build="$root/build-tsan"
cmake -S "$root" -B "$build" -G Ninja -DHALFTONE_SANITIZE=thread -DHALFTONE_WERROR=ON >/dev/null
cmake --build "$build" -j "$jobs" --target halftone_tests halftone_tool_tests
export TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1"
ctest --test-dir "$build" --output-on-failure -j "$jobs" \
  -R 'HostThreads|PlaneThreads|DrawBandBytes|SameOnTwoThreads|CrtRand|JobSignals|AutoResetEvent|ToolStream'
