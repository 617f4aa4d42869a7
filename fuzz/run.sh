#!/usr/bin/env bash
# Runs every fuzz target for SECONDS each (default 60), one after the other, each from its
# committed corpus (fuzz/corpus/<target>) plus the seed files, new finds kept in
# build-fuzz/corpus/<target>, and prints executions, edges and crashes a target. Builds the
# targets first (clang, address and undefined-behaviour checks, coverage of the whole engine).
#   fuzz/run.sh [SECONDS] [TARGET...]     e.g. fuzz/run.sh 1800 for the long runs of FUZZING.md
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
seconds="${1:-60}"
shift || true
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(bitmap mono_stack duo_stack layer_table api)
build="${HALFTONE_FUZZ_BUILD:-$root/build-fuzz}"
"$root/scripts/ensure-deps.sh" clang >/dev/null
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DHALFTONE_BUILD_FUZZ=ON -DHALFTONE_BUILD_TESTS=OFF -DHALFTONE_BUILD_TOOLS=OFF \
  -DHALFTONE_SANITIZE=address,undefined >/dev/null
cmake --build "$build" -j "$(nproc 2>/dev/null || echo 2)" --target fuzz_seeds \
  $(printf '%s_fuzzer ' "${targets[@]}") >/dev/null
rm -rf "$build/seeds"
"$build/fuzz/fuzz_seeds" "$build/seeds"
printf '%-12s %12s %8s %8s %s\n' target executions edges crashes seconds
status=0
for t in "${targets[@]}"; do
  found="$build/corpus/$t"
  mkdir -p "$found" "$build/crashes/$t"
  dirs=("$found")
  for d in "$root/fuzz/corpus/$t" "$build/seeds/$t"; do
    if [ -d "$d" ]; then dirs+=("$d"); fi
  done
  log="$build/$t.log"
  if "$build/fuzz/${t}_fuzzer" -max_total_time="$seconds" -max_len=70000 -rss_limit_mb=2048 -timeout=30 \
       -print_final_stats=1 -artifact_prefix="$build/crashes/$t/" "${dirs[@]}" >"$log" 2>&1; then
    crashes=0
  else
    crashes=1
    status=1
  fi
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1 || true)
  edges=$(grep -oE 'cov: [0-9]+' "$log" | tail -1 | cut -d' ' -f2 || true)
  printf '%-12s %12s %8s %8s %s\n' "$t" "${execs:-?}" "${edges:-?}" "$crashes" "$seconds"
  [ "$crashes" = 0 ] || { tail -n 30 "$log"; ls "$build/crashes/$t"; }
done
exit $status
