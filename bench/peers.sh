#!/usr/bin/env bash
# Times the halftone command against netpbm and ImageMagick, whole process, medians of several
# runs, and prints the ratios measured in this one run: a 4096 x 4096 grey ramp (PGM in, PBM
# out), then an A4 page at 600 dpi (CMYK TIFF and RGB PNG in, dots TIFF and preview out, against
# ImageMagick's per-channel Floyd-Steinberg). Installs what it needs with apt-get.
#   bench/peers.sh [RUNS]   (default 7 runs of the grey case; PAGE_RUNS, default 3, of the page;
#                            METHOD=name picks the grey case's halftone method)
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
/usr/bin/python3 -c "import numpy, PIL" 2>/dev/null || need+=(python3-numpy python3-pil)
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

median() { sort -n | awk '{a[NR]=$1} END {print a[int((NR+1)/2)]}'; }

# Times every "name|command" of a set, RUNS times each, and prints medians, peak memory and each
# one's time over the first's.
compare() {
  local runs=$1; shift
  local -a set=("$@")
  declare -A med peak
  for job in "${set[@]}"; do
    local name=${job%%|*} cmd=${job#*|} kb=0
    local -a times=()
    for ((i = 0; i < runs; i++)); do
      # Wall time to the microsecond from the shell's clock (time's %e has 10 ms steps, too
      # coarse for a run of 60 ms); time itself gives the peak memory.
      local start=$EPOCHREALTIME
      /usr/bin/time -f "%M" -o "$WORK/t" bash -c "$cmd"
      local end=$EPOCHREALTIME
      times+=("$(awk -v a="$start" -v b="$end" 'BEGIN { printf "%.4f", b - a }')")
      kb=$(cat "$WORK/t")
    done
    med[$name]=$(printf '%s\n' "${times[@]}" | median)
    peak[$name]=$kb
  done
  local base=${set[0]%%|*}
  printf '%-44s %10s %10s %14s\n' program "median s" "peak MiB" "x halftone"
  for job in "${set[@]}"; do
    local name=${job%%|*}
    awk -v n="$name" -v t="${med[$name]}" -v b="${med[$base]}" -v k="${peak[$name]}" \
      'BEGIN { printf "%-44s %10.3f %10.1f %14.1f\n", n, t, k / 1024, (b > 0 ? t / b : 0) }'
  done
}

echo "== 4096 x 4096 grey ramp, PGM in, PBM out ($RUNS runs each)"
compare "$RUNS" \
  "halftone -m $METHOD|$HALFTONE $WORK/ramp.pgm -m $METHOD -q --time 1 -o $WORK/ht.pbm" \
  "pamditherbw -fs|pamditherbw -fs $WORK/ramp.pgm > $WORK/fs.pbm" \
  "pamditherbw -dither8|pamditherbw -dither8 $WORK/ramp.pgm > $WORK/d8.pbm" \
  "convert FloydSteinberg|/usr/bin/convert $WORK/ramp.pgm -dither FloydSteinberg -monochrome $WORK/im.pbm" \
  "convert o8x8|/usr/bin/convert $WORK/ramp.pgm -ordered-dither o8x8 -monochrome $WORK/im8.pbm"

# An A4 page at 600 dpi (4960 x 7016): a photograph-like CMYK TIFF (smooth shapes, fine noise)
# and the same picture as an RGB PNG.
/usr/bin/python3 - "$WORK" <<'PY'
import sys
import numpy as np
from PIL import Image
w, h = 4960, 7016
y = np.linspace(0, 1, h, dtype=np.float32)[:, None]
x = np.linspace(0, 1, w, dtype=np.float32)[None, :]
rng = np.random.default_rng(3)
planes = []
for i, (fx, fy) in enumerate([(3, 2), (2, 5), (5, 3), (1, 1)]):
    v = 0.5 + 0.25 * np.sin(2 * np.pi * (fx * x + 0.3 * i)) * np.cos(2 * np.pi * (fy * y + 0.1 * i))
    v = v + 0.2 * (x * y if i == 3 else x - y) + rng.normal(0, 0.03, (h, w)).astype(np.float32)
    planes.append(np.clip(v * 255, 0, 255).astype(np.uint8))
page = Image.fromarray(np.dstack(planes), "CMYK")
page.save(sys.argv[1] + "/page.tif")
page.convert("RGB").save(sys.argv[1] + "/photo.png", compress_level=1)
PY
# Debian's ImageMagick policy caps the pixel cache at 256 MiB in memory and 1 GiB on disk, too
# little for the page: a policy of our own lifts the caps for the page case.
cat > "$WORK/policy.xml" <<'XML'
<policymap>
  <policy domain="resource" name="memory" value="4GiB"/>
  <policy domain="resource" name="map" value="8GiB"/>
  <policy domain="resource" name="disk" value="16GiB"/>
  <policy domain="resource" name="area" value="1GP"/>
  <policy domain="resource" name="width" value="64KP"/>
  <policy domain="resource" name="height" value="64KP"/>
</policymap>
XML
export MAGICK_CONFIGURE_PATH="$WORK"
PAGE_RUNS=${PAGE_RUNS:-3}
echo "== A4 at 600 dpi, 4960 x 7016, four planes: 8-bit CMYK TIFF (139 MB) and RGB PNG ($PAGE_RUNS runs each)"
compare "$PAGE_RUNS" \
  "halftone CMYK TIFF: dots TIFF + preview PNG|$HALFTONE $WORK/page.tif -m RoundFaxest --mode 2 -q --time 1 -o $WORK/dots.tif" \
  "halftone CMYK TIFF: dots TIFF, --no-preview|$HALFTONE $WORK/page.tif -m RoundFaxest --mode 2 -q --time 1 -o $WORK/dots2.tif --no-preview" \
  "halftone CMYK TIFF -m sdiufiavs: PBM preview|$HALFTONE $WORK/page.tif -m sdiufiavs -q --time 1 -o $WORK/page.pbm" \
  "halftone RGB PNG: dots TIFF + preview PNG|$HALFTONE $WORK/photo.png -m RoundFaxest --mode 2 -q --time 1 -o $WORK/dots3.tif" \
  "convert CMYK TIFF: per-channel FS|/usr/bin/convert $WORK/page.tif -separate -dither FloydSteinberg -monochrome $WORK/im-%d.pbm" \
  "convert RGB PNG: per-channel FS|/usr/bin/convert $WORK/photo.png -separate -dither FloydSteinberg -monochrome $WORK/imp-%d.pbm"
echo "$(nproc) cores"
