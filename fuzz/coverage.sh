#!/usr/bin/env bash
# Line coverage the committed corpus reaches: builds the fuzz targets with clang's source-based
# coverage, runs each over fuzz/corpus/<target> once, and prints llvm-cov's report for the
# given source folders (default src/screening src/tone).
#   fuzz/coverage.sh [FOLDER...]
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
folders=("$@")
[ ${#folders[@]} -gt 0 ] || folders=(src/screening src/tone)
build="$root/build-fuzz-coverage"
"$root/scripts/ensure-deps.sh" clang llvm >/dev/null
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DHALFTONE_BUILD_FUZZ=ON -DHALFTONE_BUILD_TESTS=OFF -DHALFTONE_BUILD_TOOLS=OFF \
  -DCMAKE_CXX_FLAGS="-fprofile-instr-generate -fcoverage-mapping" \
  -DCMAKE_EXE_LINKER_FLAGS="-fprofile-instr-generate" -DCMAKE_SHARED_LINKER_FLAGS="-fprofile-instr-generate" >/dev/null
targets=(bitmap mono_stack duo_stack layer_table api)
cmake --build "$build" -j "$(nproc 2>/dev/null || echo 2)" --target $(printf '%s_fuzzer ' "${targets[@]}") >/dev/null
rm -f "$build"/*.profraw
objects=()
for t in "${targets[@]}"; do
  LLVM_PROFILE_FILE="$build/$t.profraw" "$build/fuzz/${t}_fuzzer" -runs=0 "$root/fuzz/corpus/$t" >/dev/null 2>&1
  objects+=(-object "$build/fuzz/${t}_fuzzer")
done
objects+=(-object "$build/libhalftone.so")
llvm-profdata merge -sparse "$build"/*.profraw -o "$build/all.profdata"
llvm-cov report "${objects[@]:1}" -instr-profile="$build/all.profdata" \
  $(for f in "${folders[@]}"; do printf '%s ' "$root/$f"; done) | tail -n 40
