#!/usr/bin/env bash
# Installs what is missing, builds everything and runs every test tier:
#   native      unit and integration tests on virtual sensors, the real-libusb
#               tier (umockdev), the C smoke test, the CLI and Python tests
#   install     the installed package: examples built through CMake and pkg-config
#   packages    the Debian packages: lintian, installed and used, removed; the
#               arm64 and armhf packages checked and their CLI run under qemu-user
#   valgrind    memcheck over the tests labelled memcheck (native build)
#   sanitizers  ThreadSanitizer, AddressSanitizer + UndefinedBehaviorSanitizer
#   arm64 armhf the cross-built targets, run under qemu-user
#   fuzz        short runs of the fuzz targets
# ORU_TEST_TIERS="native install ..." runs a subset. Every tier runs even when
# an earlier one failed; the closing lines count the tests of all of them,
# from the tiers' JUnit files and result counts, and the exit status is
# non-zero when any tier failed.
set -uo pipefail
cd "$(dirname "$0")/.."

TIERS=${ORU_TEST_TIERS:-"native install packages valgrind sanitizers arm64 armhf fuzz"}
RESULTS=$(mktemp -d /tmp/oru-test.XXXXXX)
trap 'rm -rf "$RESULTS"' EXIT
export ORU_RESULTS_DIR=$RESULTS
JOBS=$(nproc 2>/dev/null || echo 2)

./scripts/setup.sh test || exit 1

tier() { [[ " $TIERS " == *" $1 "* ]]; }
banner() { printf '\n==== %s ====\n' "$1"; }
failed_tiers=()
# Runs one tier's command; a tier that exits non-zero counts as failed even
# when its own counts do not say so.
run_tier() {
  local name=$1
  shift
  banner "$name"
  if ! "$@"; then
    failed_tiers+=("$name")
    echo "tier $name failed"
  fi
}

native() {
  cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORU_BUILD_TESTS=ON &&
    cmake --build build -j"$JOBS" &&
    ctest --test-dir build --output-on-failure -j"$JOBS" --output-junit "$RESULTS/native.xml"
}
install_tier() {
  if ./scripts/test-install.sh build; then echo "1 0" >"$RESULTS/install.count"; else echo "0 1" >"$RESULTS/install.count"; return 1; fi
}

tier native && run_tier "native build and tests" native
tier install && run_tier "installed package" install_tier
tier packages && run_tier "Debian packages" ./scripts/test-packages.sh
tier valgrind && run_tier "valgrind memcheck" env BUILD_DIR=build ./scripts/valgrind.sh
tier sanitizers && run_tier "sanitizers" ./scripts/test-sanitizers.sh thread address
tier arm64 && run_tier "arm64 under qemu" ./scripts/test-arm.sh arm64
tier armhf && run_tier "armhf under qemu" ./scripts/test-arm.sh armhf
tier fuzz && run_tier "fuzzing (short)" ./scripts/fuzz.sh 5

banner "summary"
python3 scripts/count-results.py "$RESULTS"
python3 scripts/count-lines.py
for t in "${failed_tiers[@]}"; do echo "failed tier: $t"; done
summary=$(python3 scripts/count-results.py --totals "$RESULTS")
echo "$summary"
[ ${#failed_tiers[@]} -eq 0 ] && [[ "$summary" == *" 0 failed" ]]
