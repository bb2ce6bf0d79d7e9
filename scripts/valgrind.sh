#!/usr/bin/env bash
# Runs valgrind memcheck over the tests labelled "memcheck" (exported
# functions, bring-up and tear-down, faults, acquisition, streams), one
# process per test case as ctest does. Fails on any invalid access, use of
# uninitialised memory, or a definite or indirect leak not listed in
# scripts/valgrind.supp.   Usage: scripts/valgrind.sh [LABEL] (default memcheck)
# With ORU_RESULTS_DIR set, it leaves its counts there.
# BUILD_DIR (default build-valgrind) and JOBS (default: number of cores) can
# be set in the environment.
set -euo pipefail
cd "$(dirname "$0")/.."
ROOT=$PWD
BUILD_DIR=${BUILD_DIR:-build-valgrind}
JOBS=${JOBS:-$(nproc 2>/dev/null || echo 2)}
LABEL=${1:-memcheck}

./scripts/setup.sh test
if ! command -v valgrind >/dev/null; then
  SUDO=""; [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  $SUDO apt-get update -qq || true
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends valgrind
fi

cmake -S . -B "$BUILD_DIR" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORU_BUILD_TESTS=ON >/dev/null
cmake --build "$BUILD_DIR" -j"$JOBS" >"$BUILD_DIR/valgrind-build.log" 2>&1 ||
  { cat "$BUILD_DIR/valgrind-build.log"; exit 1; }

# One log per test case, kept for reading after a failure.
LOGS=$ROOT/$BUILD_DIR/valgrind-logs
rm -rf "$LOGS"
mkdir -p "$LOGS"
CASES="$LOGS/cases"
: >"$CASES"
# The test cases carrying the label, as ctest would run them: program and
# test name.
ctest --test-dir "$BUILD_DIR" -L "$LABEL" --show-only=json-v1 | python3 -c '
import json, sys
for test in json.load(sys.stdin)["tests"]:
    command = test["command"]
    name = next(a.split("=", 1)[1] for a in command if a.startswith("--gtest_filter="))
    print(command[0], name)' >"$CASES"

run_case() {
  local exe=$1 name=$2 log
  log="$LOGS/$(basename "$exe").${name//\//_}.log"
  # A test program may replace operator new and delete (to fail allocations
  # on demand); nouserintercepts keeps valgrind from swapping its own
  # allocator in for the program's new while the program's delete stays.
  # The tests' own working directory, as under ctest.
  if (cd "$(dirname "$exe")" && valgrind --tool=memcheck --error-exitcode=99 --leak-check=full \
        --errors-for-leak-kinds=definite,indirect --show-leak-kinds=definite,indirect \
        --track-origins=yes --num-callers=40 --soname-synonyms=somalloc=nouserintercepts \
        --suppressions="$ROOT/scripts/valgrind.supp" \
        "$exe" --gtest_filter="$name" >"$log" 2>&1); then
    echo "ok   $(basename "$exe") $name"
  else
    echo "FAIL $(basename "$exe") $name"
    echo "     log: $log"
    return 1
  fi
}
export -f run_case
export LOGS ROOT

total=$(wc -l <"$CASES")
echo "valgrind: $total test cases, $JOBS at a time"
failed=0
xargs -P"$JOBS" -L1 bash -c 'run_case "$0" "$1"' <"$CASES" >"$LOGS/results" || failed=1
for log in $(awk '/^     log: /{print $2}' "$LOGS/results"); do
  echo "---- $log"
  grep -E -A20 'lost in loss record|^==[0-9]+== (Invalid|Conditional|Use of uninit|Syscall param|Mismatched)' "$log" | head -80 || true
  grep -E '^\[  FAILED  \]|watchdog' "$log" | head -5 || true
done
passed=$(grep -c '^ok ' "$LOGS/results" || true)
bad=$(grep -c '^FAIL ' "$LOGS/results" || true)
echo "valgrind: $passed passed, $bad failed"
[ -n "${ORU_RESULTS_DIR:-}" ] && echo "$passed $bad" >"$ORU_RESULTS_DIR/valgrind.count"
[ "$failed" -eq 0 ] && [ "$bad" -eq 0 ]
