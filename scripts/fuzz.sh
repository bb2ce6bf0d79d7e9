#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for SECONDS (default
# 10) on its seed corpus.   Usage: scripts/fuzz.sh [SECONDS]
set -euo pipefail
cd "$(dirname "$0")/.."
SECONDS_EACH=${1:-10}
./scripts/setup.sh
CC=clang CXX=clang++ cmake -S . -B build-fuzz -DORU_FUZZ=ON -DORU_BUILD_TESTS=OFF -DORU_BUILD_SIM=OFF \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build-fuzz -j"$(nproc)" --target fuzz_frame_decode fuzz_sensor_id fuzz_text_parsers fuzz_ae_inputs
for t in fuzz_frame_decode fuzz_sensor_id fuzz_text_parsers fuzz_ae_inputs; do
  work=$(mktemp -d)
  cp fuzz/corpus/* "$work/"
  echo "fuzz: $t for ${SECONDS_EACH}s"
  ./build-fuzz/fuzz/$t -max_total_time="$SECONDS_EACH" -max_len=4096 "$work" 2>&1 | tail -2
  rm -rf "$work"
done
