#!/bin/sh
# Builds the libFuzzer targets with clang and runs each for a bounded time (about a minute in
# all). Skips cleanly when clang or its fuzzer runtime is missing.
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
build="$root/build-fuzz"
seconds="${HALFTONE_FUZZ_SECONDS:-15}"

if ! command -v clang++ >/dev/null 2>&1; then
  echo "fuzz: clang++ not found; skipped"
  exit 0
fi
probe=$(mktemp -d)
trap 'rm -rf "$probe"' EXIT
printf 'extern "C" int LLVMFuzzerTestOneInput(const unsigned char*, unsigned long) { return 0; }\n' >"$probe/p.cpp"
if ! clang++ -fsanitize=fuzzer "$probe/p.cpp" -o "$probe/p" >/dev/null 2>&1; then
  echo "fuzz: clang's fuzzer runtime not available; skipped"
  exit 0
fi

cmake -S "$root" -B "$build" -G Ninja -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DHALFTONE_BUILD_FUZZ=ON -DHALFTONE_BUILD_TESTS=OFF -DHALFTONE_BUILD_TOOLS=OFF \
  -DHALFTONE_SANITIZE=address,undefined >/dev/null
cmake --build "$build" -j2 --target bitmap_fuzzer mono_stack_fuzzer duo_stack_fuzzer layer_table_fuzzer fuzz_seeds

seeds="$build/seeds"
rm -rf "$seeds"
"$build/fuzz/fuzz_seeds" "$seeds"
for target in bitmap mono_stack duo_stack layer_table; do
  corpus="$build/corpus/$target"
  mkdir -p "$corpus"
  echo "fuzz: $target for ${seconds}s"
  "$build/fuzz/${target}_fuzzer" -max_total_time="$seconds" -max_len=70000 -rss_limit_mb=2048 \
    -print_final_stats=1 "$corpus" "$seeds/$target" 2>"$build/$target.log" || {
    tail -n 40 "$build/$target.log"
    echo "fuzz: $target FAILED"
    exit 1
  }
  grep -E "stat::number_of_executed_units" "$build/$target.log" | sed "s/^/fuzz: $target /"
done
