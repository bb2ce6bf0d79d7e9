#!/usr/bin/env bash
# Cross-builds the library and the whole test suite for a Raspberry Pi class
# target and runs it under qemu-user.  Usage: scripts/test-arm.sh [arm64|armhf]...
set -euo pipefail
cd "$(dirname "$0")/.."

targets=("$@")
[ ${#targets[@]} -eq 0 ] && targets=(arm64 armhf)

./scripts/setup.sh
for t in "${targets[@]}"; do
  ./scripts/setup-cross.sh "$t"
  case "$t" in
    arm64) tc=cmake/toolchain-aarch64.cmake ;;
    armhf) tc=cmake/toolchain-armhf.cmake ;;
    *) echo "unknown target $t" >&2; exit 2 ;;
  esac
  JOBS=$(nproc 2>/dev/null || echo 2)
  # Release, as users of the toolchain files build it: the optimiser's
  # choices are what the floating-point results must survive.
  cmake -S . -B "build-$t" -DCMAKE_TOOLCHAIN_FILE="$tc" -DCMAKE_BUILD_TYPE=Release
  cmake --build "build-$t" -j"$JOBS"
  ctest --test-dir "build-$t" --output-on-failure -j"$JOBS" ${ORU_RESULTS_DIR:+--output-junit "$ORU_RESULTS_DIR/$t.xml"}
done
