#!/usr/bin/env bash
# Times the halftone command against netpbm and ImageMagick on the same 4096 x 4096 grey ramp,
# whole process (read PGM, halftone, write), median of several runs, and prints the ratios
# measured in this one run. Installs netpbm and imagemagick with apt-get when they are missing.
#   bench/peers.sh [RUNS]        (default 7 runs each; METHOD=name picks the halftone method)
set -euo pipefail
cd "$(dirname "$0")/.."
RUNS=${1:-7}
METHOD=${METHOD:-orangecagn}
BUILD=${BUILD:-build-peers}
WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT

need=()
command -v pamditherbw >/dev/null || need+=(netpbm)
[ -x /usr/bin/convert ] || need+=(imagemagick)
if [ ${#need[@]} -gt 0 ]; then
  echo "installing ${need[*]}" >&2
  apt-get install -y -qq "${need[@]}" >/dev/null
fi

cmake -S . -B "$BUILD" -G Ninja -DCMAKE_BUILD_TYPE=Release -DHALFTONE_BUILD_TESTS=OFF >/dev/null
cmake --build "$BUILD" -j2 --target halftone_cli >/dev/null
HALFTONE="$BUILD/tools/halftone"

python3 - "$WORK/ramp.pgm" <<'PY'
import sys
w = h = 4096
row = bytes((x * 255) // (w - 1) for x in range(w))
with open(sys.argv[1], "wb") as f:
    f.write(b"P5\n%d %d\n255\n" % (w, h))
    f.write(row * h)
PY

# name|command
jobs=(
  "halftone -m $METHOD|$HALFTONE $WORK/ramp.pgm -m $METHOD -q --time 1 -o $WORK/ht.pbm"
  "pamditherbw -fs|pamditherbw -fs $WORK/ramp.pgm > $WORK/fs.pbm"
  "pamditherbw -dither8|pamditherbw -dither8 $WORK/ramp.pgm > $WORK/d8.pbm"
  "convert FloydSteinberg|/usr/bin/convert $WORK/ramp.pgm -dither FloydSteinberg -monochrome $WORK/im.pbm"
  "convert o8x8|/usr/bin/convert $WORK/ramp.pgm -ordered-dither o8x8 -monochrome $WORK/im8.pbm"
)

median() { sort -n | awk '{a[NR]=$1} END {print a[int((NR+1)/2)]}'; }
declare -A med peak
for job in "${jobs[@]}"; do
  name=${job%%|*}; cmd=${job#*|}
  times=()
  for ((i = 0; i < RUNS; i++)); do
    # Wall time to the microsecond from the shell's clock (time's %e has 10 ms steps, too
    # coarse for a run of 60 ms); time itself gives the peak memory.
    start=$EPOCHREALTIME
    /usr/bin/time -f "%M" -o "$WORK/t" bash -c "$cmd"
    end=$EPOCHREALTIME
    times+=("$(awk -v a="$start" -v b="$end" 'BEGIN { printf "%.4f", b - a }')")
    kb=$(cat "$WORK/t")
  done
  med[$name]=$(printf '%s\n' "${times[@]}" | median)
  peak[$name]=$kb
done

base="halftone -m $METHOD"
printf '%-28s %10s %10s %14s\n' program "median s" "peak MiB" "halftone is x"
for job in "${jobs[@]}"; do
  name=${job%%|*}
  awk -v n="$name" -v t="${med[$name]}" -v b="${med[$base]}" -v k="${peak[$name]}" \
    'BEGIN { printf "%-28s %10.3f %10.1f %14.1f\n", n, t, k / 1024, (b > 0 ? t / b : 0) }'
done
echo "input 16.0 MiB + 1-bit output 2.0 MiB; $(nproc) cores; $RUNS runs each"
