#!/usr/bin/env bash
# Installs, quietly and only when missing, the Debian packages the build and tests use.
# Extra package names may be passed as arguments (e.g. clang for the fuzzers).
set -euo pipefail
packages=(cmake ninja-build g++ make pkg-config binutils libgtest-dev libgmock-dev libpng-dev libtiff-dev libjpeg-dev libcairo2-dev libfftw3-dev fonts-dejavu-core "$@")
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
if [ "$(id -u)" -ne 0 ]; then
  if command -v sudo >/dev/null 2>&1; then SUDO=sudo; else
    echo "ensure-deps: missing packages (${missing[*]}) and not root; install them first" >&2; exit 1
  fi
else SUDO=""; fi
echo "ensure-deps: installing ${missing[*]}" >&2
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq >/dev/null 2>&1 || echo "ensure-deps: apt-get update reported errors; installing from the package lists it has" >&2
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
