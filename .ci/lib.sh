# Shared by the CI stage scripts: quiet installs that fail loudly.
#   need PACKAGE...   installs what is missing (apt-get, quietly) or exits 1 naming it
need() {
  "$(dirname "${BASH_SOURCE[0]}")/../scripts/ensure-deps.sh" "$@" || {
    echo "$(basename "$0"): FAILED - could not install: $*" >&2
    exit 1
  }
}
jobs="${HALFTONE_JOBS:-$(nproc 2>/dev/null || echo 2)}"
gcc_major="$(gcc -dumpversion 2>/dev/null | cut -d. -f1)"
