# Sourced by the benchmark scripts: a release build of halftone_bench in $BUILD (default
# build-bench) and a scratch folder $WORK removed on exit.
BUILD=${BUILD:-build-bench}
WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT
cmake -S . -B "$BUILD" -G Ninja -DCMAKE_BUILD_TYPE=Release -DHALFTONE_BUILD_BENCH=ON -DHALFTONE_BUILD_TESTS=OFF >/dev/null
cmake --build "$BUILD" -j2 --target halftone_bench >/dev/null
