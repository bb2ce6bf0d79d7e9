#!/usr/bin/env bash
# Installs what is missing, builds everything and runs every test tier:
#   1. native build: unit and integration tests on virtual sensors, the
#      real-libusb tier (umockdev), the C smoke test, the CLI and Python tests
#   2. the installed package: examples built through CMake and pkg-config
#   3. valgrind memcheck over the integration tests (native build)
#   4. sanitizers: ThreadSanitizer, AddressSanitizer + UndefinedBehaviorSanitizer
#   5. the arm64 and armhf targets, cross-built and run under qemu-user
#   6. short fuzz runs
# ORU_TEST_TIERS="native install ..." runs a subset.
set -euo pipefail
cd "$(dirname "$0")/.."

TIERS=${ORU_TEST_TIERS:-"native install valgrind sanitizers arm64 armhf fuzz"}
LOG=$(mktemp /tmp/oru-test.XXXXXX)
trap 'rm -f "$LOG"' EXIT
JOBS=$(nproc 2>/dev/null || echo 2)

./scripts/setup.sh

tier() { [[ " $TIERS " == *" $1 "* ]]; }
banner() { printf '\n==== %s ====\n' "$1"; }

if tier native; then
  banner "native build and tests"
  cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo
  cmake --build build -j"$JOBS"
  ctest --test-dir build --output-on-failure -j"$JOBS" 2>&1 | tee -a "$LOG"
fi
if tier install; then
  banner "installed package"
  ./scripts/test-install.sh build
fi
if tier valgrind; then
  banner "valgrind memcheck"
  BUILD_DIR=build ./scripts/valgrind.sh
fi
if tier sanitizers; then
  banner "sanitizers"
  ./scripts/test-sanitizers.sh thread address 2>&1 | tee -a "$LOG"
fi
if tier arm64; then
  banner "arm64 under qemu"
  ./scripts/test-arm.sh arm64 2>&1 | tee -a "$LOG"
fi
if tier armhf; then
  banner "armhf under qemu"
  ./scripts/test-arm.sh armhf 2>&1 | tee -a "$LOG"
fi
if tier fuzz; then
  banner "fuzzing (short)"
  ./scripts/fuzz.sh 5
fi

# One closing line over every ctest run above (set -o pipefail has already
# stopped the script on any failure).
passed=0
failed=0
while read -r p f; do
  passed=$((passed + p))
  failed=$((failed + f))
done < <(sed -n 's/.*tests passed, \([0-9]*\) tests failed out of \([0-9]*\).*/\2 \1/p' "$LOG" |
         awk '{ print $1 - $2, $2 }')
banner "summary"
echo "$passed passed, $failed failed"
