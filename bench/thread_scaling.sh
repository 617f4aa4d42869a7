#!/usr/bin/env bash
# Four-plane bands on one thread and on two, alternated round by round so both see the same
# machine, printed as a Markdown table of wall-time Mpx/s (median over the rounds' medians) and
# the ratio. Only routines whose planes can run apart gain; the others are listed as they are.
#   bench/thread_scaling.sh [FILTER] [ROUNDS]   (defaults: every method's 4-plane band, 3)
set -euo pipefail
cd "$(dirname "$0")/.."
FILTER=${1:-/4planes/}
ROUNDS=${2:-3}
source bench/build_bench.sh

for round in $(seq "$ROUNDS"); do
  for threads in 1 2; do
    HALFTONE_BENCH_THREADS=$threads "$BUILD/bench/halftone_bench" --benchmark_filter="$FILTER" \
      --benchmark_min_time=0.2 --benchmark_repetitions=3 \
      --benchmark_out="$WORK/t$threads-$round.json" --benchmark_out_format=json >/dev/null 2>&1
  done
done
echo "load average: $(cut -d' ' -f1-3 /proc/loadavg), $(nproc) cores"

python3 - "$WORK" <<'PY'
import glob, json, os, statistics, sys

def medians(threads):
    """benchmark -> median over rounds of each round's median wall rate, Mpx/s."""
    per_round = {}
    for path in glob.glob(os.path.join(sys.argv[1], f"t{threads}-*.json")):
        rates = {}
        for b in json.load(open(path))["benchmarks"]:
            if b.get("run_type") == "iteration":
                rates.setdefault(b["run_name"].rsplit("/", 1)[0], []).append(b["items_per_second"] / 1e6)
        for name, r in rates.items():
            per_round.setdefault(name, []).append(statistics.median(r))
    return {name: statistics.median(r) for name, r in per_round.items()}

one, two = medians(1), medians(2)
print("| routine | 1 thread | 2 threads | scaling |")
print("|---|---:|---:|---:|")
for name in one:
    if name in two:
        print(f"| {name} | {one[name]:.0f} | {two[name]:.0f} | {two[name] / one[name]:.2f}x |")
PY
