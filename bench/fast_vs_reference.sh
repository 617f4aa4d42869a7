#!/usr/bin/env bash
# Every registry method's rate with its readable reference pass (HALFTONE_PATH=reference) and
# with its fast path, in one session, medians of several repetitions, printed as a Markdown
# table of Mpx/s (4 planes / 1 plane / 4 planes in one-row bands): medians from CPU time and
# from wall time, and the best repetition's CPU rate. On a shared machine CPU time is the steadier of the two; on an idle one
# they agree.
#   bench/fast_vs_reference.sh [FILTER] [REPETITIONS]   (defaults: every method, 5)
set -euo pipefail
cd "$(dirname "$0")/.."
FILTER=${1:-.}
REPS=${2:-5}
source bench/build_bench.sh

run() {  # run OUT [ENV...]
  local out=$1
  shift
  env "$@" "$BUILD/bench/halftone_bench" --benchmark_filter="$FILTER" --benchmark_min_time=0.2 \
    --benchmark_repetitions="$REPS" \
    --benchmark_out="$out" --benchmark_out_format=json >/dev/null 2>&1
}
run "$WORK/ref.json" HALFTONE_PATH=reference
run "$WORK/fast.json" HALFTONE_PATH=vector
echo "load average: $(cut -d' ' -f1-3 /proc/loadavg)"

python3 - "$WORK/ref.json" "$WORK/fast.json" <<'PY'
import json, statistics, sys

def rates_of(path):
    """(method, layout) -> (median CPU, median wall, best CPU) Mpx/s over the repetitions."""
    runs = {}
    for b in json.load(open(path))["benchmarks"]:
        if b.get("run_type") != "iteration":
            continue
        method, layout = b["run_name"].split("/")[:2]
        # items_per_second counts wall time; the same pixels over the CPU time give the CPU rate.
        cpu = b["items_per_second"] * b["real_time"] / b["cpu_time"] / 1e6
        wall = b["items_per_second"] / 1e6
        runs.setdefault((method, layout), []).append((cpu, wall))
    return {k: (statistics.median(c for c, _ in v), statistics.median(w for _, w in v), max(c for c, _ in v))
            for k, v in runs.items()}

ref, fast = rates_of(sys.argv[1]), rates_of(sys.argv[2])
methods = list(dict.fromkeys(m for m, _ in fast))

def cell(rates, m, layout, k):
    r = rates.get((m, layout))
    return f"{r[k]:.0f}" if r else "-"

# The best repetition is the one least disturbed by whatever else the machine ran.
print("| method | 4 planes ref -> fast (CPU) | 1 plane ref -> fast (CPU) | 4 planes / 1 plane fast (wall) "
      "| 4 planes / 1 plane fast (best CPU) | 4 planes, one-row bands, ref -> fast (CPU) |")
print("|---|---:|---:|---:|---:|---:|")
for m in methods:
    print(f"| {m} | {cell(ref, m, '4planes', 0)} -> {cell(fast, m, '4planes', 0)} "
          f"| {cell(ref, m, '1plane', 0)} -> {cell(fast, m, '1plane', 0)} "
          f"| {cell(fast, m, '4planes', 1)} / {cell(fast, m, '1plane', 1)} "
          f"| {cell(fast, m, '4planes', 2)} / {cell(fast, m, '1plane', 2)} "
          f"| {cell(ref, m, '4planes_1row', 0)} -> {cell(fast, m, '4planes_1row', 0)} |")
PY
