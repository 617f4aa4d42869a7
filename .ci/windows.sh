#!/usr/bin/env bash
# Builds halftone.dll with mingw-w64 and the Linux library, runs printhost against each (the
# Windows one under Wine) and requires the two job outputs to be identical byte for byte.
# Also checks that the DLL exports exactly the names of src/exports/abi.list, undecorated.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
work="${HALFTONE_WINDOWS_WORK:-$root/build-windows-check}"
jobs="${HALFTONE_JOBS:-2}"
mingw_cxx=x86_64-w64-mingw32-g++

have_tools() { command -v "$mingw_cxx" >/dev/null && { command -v wine64 >/dev/null || command -v wine >/dev/null; }; }

if ! have_tools; then
  echo "windows.sh: installing g++-mingw-w64-x86-64 and wine64"
  installer=()
  [ "$(id -u)" -ne 0 ] && command -v sudo >/dev/null && installer=(sudo)
  if ! { "${installer[@]}" apt-get update -qq &&
         DEBIAN_FRONTEND=noninteractive "${installer[@]}" apt-get install -y -qq g++-mingw-w64-x86-64 wine64; } \
       >"$work.install.log" 2>&1 || ! have_tools; then
    echo "windows.sh: SKIPPED - mingw-w64 or Wine could not be installed (see $work.install.log)"
    exit 0
  fi
fi
wine_bin="$(command -v wine64 || command -v wine)"

rm -rf "$work"
mkdir -p "$work"

echo "windows.sh: building the Linux library and printhost"
cmake -S "$root" -B "$work/linux" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DHALFTONE_BUILD_TESTS=OFF -DHALFTONE_BUILD_TOOLS=OFF -DHALFTONE_BUILD_PRINT_HOST=ON >/dev/null
cmake --build "$work/linux" -j"$jobs" >/dev/null

echo "windows.sh: cross-building halftone.dll and printhost.exe"
cmake -S "$root" -B "$work/mingw" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-w64-x86_64.cmake" \
  -DHALFTONE_BUILD_TESTS=OFF -DHALFTONE_BUILD_TOOLS=OFF -DHALFTONE_BUILD_PRINT_HOST=ON >/dev/null
cmake --build "$work/mingw" -j"$jobs" >/dev/null

echo "windows.sh: checking the DLL export table"
grep -v '^[[:space:]]*#' "$root/src/exports/abi.list" | sed 's/[[:space:]]//g' | grep -v '^$' | sort >"$work/abi.expected"
x86_64-w64-mingw32-objdump -p "$work/mingw/halftone.dll" |
  sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' | sed -n 's/^[[:space:]]*\[[[:space:]]*[0-9]*\][[:space:]]*//p' |
  sort >"$work/abi.dll"
if ! diff -u "$work/abi.expected" "$work/abi.dll"; then
  echo "windows.sh: FAILED - halftone.dll exports differ from src/exports/abi.list"
  exit 1
fi

# Each host runs from a folder of its own holding the library and the tone-curve file, as a
# print host is installed; the library finds the file through the host program's folder.
tone="$work/ToneAry.ham"
i=0
: >"$tone"
while [ $i -lt 15 ]; do
  # Fifteen 256-byte curves, each a shifted ramp.
  LC_ALL=C awk -v k="$i" 'BEGIN { for (x = 0; x < 256; x++) printf "%c", (x * (k + 3) + 17 * k) % 251 + 1 }' >>"$tone"
  i=$((i + 1))
done
[ "$(wc -c <"$tone")" -eq 3840 ] || { echo "windows.sh: FAILED - could not write the tone-curve file"; exit 1; }

mkdir -p "$work/run-linux" "$work/run-windows"
cp "$work/linux/printhost" "$work/linux/libhalftone.so"* "$tone" "$work/run-linux/"
cp "$work/mingw/printhost.exe" "$work/mingw/halftone.dll" "$tone" "$work/run-windows/"

echo "windows.sh: running printhost on Linux"
(cd "$work/run-linux" && ./printhost "$work/run-linux/libhalftone.so" job.out)

echo "windows.sh: running printhost.exe under Wine"
export WINEPREFIX="$work/wineprefix" WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
(cd "$work/run-windows" && "$wine_bin" printhost.exe halftone.dll job.out)

if cmp "$work/run-linux/job.out" "$work/run-windows/job.out"; then
  echo "windows.sh: OK - Windows and Linux dot planes identical ($(wc -c <"$work/run-linux/job.out") bytes)"
else
  echo "windows.sh: FAILED - Windows and Linux outputs differ"
  exit 1
fi
