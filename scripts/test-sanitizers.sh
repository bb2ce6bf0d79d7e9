#!/usr/bin/env bash
# Builds the test suite with sanitizers and runs it.
#   scripts/test-sanitizers.sh [thread|address]...
# thread:  ThreadSanitizer over the whole in-process suite.
# address: AddressSanitizer + UndefinedBehaviorSanitizer.
# Tests labelled "external" load the library into another program (Python,
# the CLI, the C smoke test, the drop-in client) and are left to the normal
# build: an uninstrumented interpreter cannot load instrumented libraries.
# With ORU_RESULTS_DIR set, each run leaves its JUnit file there.
set -euo pipefail
cd "$(dirname "$0")/.."
kinds=("$@")
[ ${#kinds[@]} -eq 0 ] && kinds=(thread address)
JOBS=$(nproc 2>/dev/null || echo 2)
for k in "${kinds[@]}"; do
  case "$k" in
    thread)  flags="-fsanitize=thread" ;;
    address) flags="-fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer" ;;
    *) echo "unknown sanitizer $k" >&2; exit 2 ;;
  esac
  dir="build-$k"
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_FLAGS="$flags -O1" -DCMAKE_CXX_FLAGS="$flags -O1" \
    -DCMAKE_EXE_LINKER_FLAGS="$flags" -DCMAKE_SHARED_LINKER_FLAGS="$flags" >/dev/null
  cmake --build "$dir" -j"$JOBS"
  TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1 suppressions=$PWD/scripts/tsan.supp" \
  ASAN_OPTIONS="detect_leaks=0:abort_on_error=1" UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1" \
    ctest --test-dir "$dir" --output-on-failure -j"$JOBS" -LE external \
      ${ORU_RESULTS_DIR:+--output-junit "$ORU_RESULTS_DIR/$k-sanitizer.xml"}
done
