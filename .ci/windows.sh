#!/usr/bin/env bash
# Builds halftone.dll for 64-bit and 32-bit Windows with mingw-w64 (the 32-bit one twice: cdecl,
# and stdcall for WINAPI hosts), checks that each exports exactly the names of
# src/exports/abi.list, undecorated, and runs the printhost program against each under Wine and
# against the Linux library natively: every job output must be identical byte for byte.
# 32-bit Windows programs need Wine's i386 half (wine32); where it cannot be installed the
# 32-bit runs are reported as not run, loudly, and the -m32 stage (.ci/m32.sh) stands in.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
source "$root/.ci/lib.sh"
work="${HALFTONE_WINDOWS_WORK:-$root/build-windows-check}"

need g++-mingw-w64-x86-64 g++-mingw-w64-i686 binutils-mingw-w64-x86-64 binutils-mingw-w64-i686 wine wine64
command -v wine >/dev/null || { echo "windows.sh: FAILED - no wine on PATH after installing it"; exit 1; }

# wine32 comes from the i386 architecture. Its packages must match the installed amd64 ones
# version for version, so they are taken from the release itself, not its security updates.
have_wine32() { dpkg-query -W -f='${Status}' wine32:i386 2>/dev/null | grep -q "install ok installed"; }
if ! have_wine32; then
  echo "windows.sh: installing wine32 (i386)"
  codename="$(. /etc/os-release && echo "${VERSION_CODENAME:-}")"
  { dpkg --add-architecture i386 && { apt-get update -qq || true; } &&
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq ${codename:+-t "$codename"} wine32:i386; } \
    >"$work.wine32.log" 2>&1 || true
  # The versions taken from the release may have replaced development packages the other
  # stages build with; put back whatever of them is missing.
  "$root/scripts/ensure-deps.sh" >/dev/null
fi

rm -rf "$work"
mkdir -p "$work"

echo "windows.sh: building the Linux library and printhost"
cmake -S "$root" -B "$work/linux" -G Ninja -DCMAKE_BUILD_TYPE=Release -DHALFTONE_WERROR=ON \
  -DHALFTONE_BUILD_TESTS=OFF -DHALFTONE_BUILD_TOOLS=OFF -DHALFTONE_BUILD_PRINT_HOST=ON >/dev/null
cmake --build "$work/linux" -j"$jobs" >/dev/null

# name  toolchain  extra options
variants=(
  "win64 mingw-w64-x86_64 "
  "win32 mingw-w64-i686 "
  "win32-stdcall mingw-w64-i686 -DHALFTONE_STDCALL=ON"
)
grep -v '^[[:space:]]*#' "$root/src/exports/abi.list" | sed 's/[[:space:]]//g' | grep -v '^$' | sort >"$work/abi.expected"
for v in "${variants[@]}"; do
  read -r name toolchain options <<<"$v"
  echo "windows.sh: cross-building $name halftone.dll and printhost.exe"
  # shellcheck disable=SC2086
  cmake -S "$root" -B "$work/$name" -G Ninja -DCMAKE_BUILD_TYPE=Release -DHALFTONE_WERROR=ON \
    -DCMAKE_TOOLCHAIN_FILE="$root/cmake/$toolchain.cmake" $options \
    -DHALFTONE_BUILD_TESTS=OFF -DHALFTONE_BUILD_TOOLS=OFF -DHALFTONE_BUILD_PRINT_HOST=ON >/dev/null
  cmake --build "$work/$name" -j"$jobs" >/dev/null
  x86_64-w64-mingw32-objdump -p "$work/$name/halftone.dll" |
    sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' | sed -n 's/^[[:space:]]*\[[[:space:]]*[0-9]*\][[:space:]]*//p' |
    sort >"$work/abi.$name"
  if ! diff -u "$work/abi.expected" "$work/abi.$name"; then
    echo "windows.sh: FAILED - $name halftone.dll exports differ from src/exports/abi.list"
    exit 1
  fi
  echo "windows.sh: $name exports $(wc -l <"$work/abi.$name") names, undecorated, as abi.list"
done

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

mkdir -p "$work/run-linux"
cp "$work/linux/printhost" "$work/linux/libhalftone.so"* "$tone" "$work/run-linux/"
echo "windows.sh: running printhost on Linux"
(cd "$work/run-linux" && ./printhost "$work/run-linux/libhalftone.so" job.out)

export WINEPREFIX="$work/wineprefix" WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
not_run=()
for v in "${variants[@]}"; do
  read -r name _ <<<"$v"
  if [[ $name == win32* ]] && ! have_wine32; then
    not_run+=("$name")
    continue
  fi
  mkdir -p "$work/run-$name"
  cp "$work/$name/printhost.exe" "$work/$name/halftone.dll" "$tone" "$work/run-$name/"
  echo "windows.sh: running the $name printhost.exe under Wine"
  (cd "$work/run-$name" && wine printhost.exe halftone.dll job.out)
  if ! cmp "$work/run-linux/job.out" "$work/run-$name/job.out"; then
    echo "windows.sh: FAILED - $name and Linux outputs differ"
    exit 1
  fi
  echo "windows.sh: OK - $name and Linux dot planes identical ($(wc -c <"$work/run-linux/job.out") bytes)"
done
if [ ${#not_run[@]} -gt 0 ]; then
  echo "windows.sh: ******************************************************************************"
  echo "windows.sh: NOT RUN: ${not_run[*]} - wine32 (i386) could not be installed on this machine"
  echo "windows.sh: (see $work.wine32.log); their exports were checked, and the -m32 stage runs"
  echo "windows.sh: the same code as 32-bit x86 with SSE2 doubles in its place."
  echo "windows.sh: ******************************************************************************"
fi
