#!/usr/bin/env bash
# A short run of every fuzz target (loaders and the whole API) from the committed corpus, under
# address and undefined-behaviour checks; any crash fails the stage. fuzz/run.sh does the work.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
source "$root/.ci/lib.sh"
need clang
"$root/fuzz/run.sh" "${HALFTONE_FUZZ_SECONDS:-20}"
