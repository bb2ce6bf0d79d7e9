#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for SECONDS (default
# 10) on a copy of its seed corpus: the tests labelled "fuzz".
#   Usage: scripts/fuzz.sh [SECONDS]
# With ORU_RESULTS_DIR set, the run leaves its JUnit file there.
set -euo pipefail
cd "$(dirname "$0")/.."
SECONDS_EACH=${1:-10}
./scripts/setup.sh test
CC=clang CXX=clang++ cmake -S . -B build-fuzz -DORU_FUZZ=ON -DORU_BUILD_TESTS=OFF -DORU_BUILD_SIM=OFF \
  -DORU_FUZZ_SECONDS="$SECONDS_EACH" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
# Only the fuzz targets: the shared library cannot link from the objects
# instrumented for them.
mapfile -t targets < <(cd fuzz && ls fuzz_*.cpp | sed 's/\.cpp$//')
cmake --build build-fuzz -j"$(nproc)" --target "${targets[@]}"
ctest --test-dir build-fuzz -L fuzz --output-on-failure ${ORU_RESULTS_DIR:+--output-junit "$ORU_RESULTS_DIR/fuzz.xml"}
