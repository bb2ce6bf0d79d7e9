#!/usr/bin/env bash
# Builds and runs the benchmarks on the virtual sensor (bench/README.md has
# the results and what they are measured against).
#   scripts/bench.sh [frames|filter_data|streaming|cli_rows|python|reconstruction]... [-- GOOGLE_BENCHMARK_ARGS]
# Default: all six (python: the binding's stream against the C reader,
# bench/python_stream.py). BUILD_DIR (default build-bench) can be set.
# The streaming benchmarks run 10 s each; the whole set takes about 2 min.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD_DIR=${BUILD_DIR:-build-bench}
sets=()
while [ $# -gt 0 ] && [ "$1" != "--" ]; do sets+=("$1"); shift; done
[ "${1:-}" = "--" ] && shift
[ ${#sets[@]} -eq 0 ] && sets=(frames filter_data streaming cli_rows python reconstruction)
targets=()
for s in "${sets[@]}"; do
  case "$s" in
    frames|filter_data|streaming|cli_rows|reconstruction) targets+=("bench_$s") ;;
    python) targets+=(stream_reader oru_device vsensor_dropin) ;;
    *) echo "unknown benchmark set $s (frames, filter_data, streaming, cli_rows, python, reconstruction)" >&2; exit 2 ;;
  esac
done

./scripts/setup.sh
cmake -S . -B "$BUILD_DIR" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORU_BUILD_BENCH=ON -DORU_BUILD_TESTS=OFF >/dev/null
cmake --build "$BUILD_DIR" -j"$(nproc 2>/dev/null || echo 2)" --target "${targets[@]}" >/dev/null

echo "machine: $(lscpu | sed -n 's/^Model name: *//p'), $(nproc) cores; load average $(cut -d' ' -f1-3 /proc/loadavg)"
echo "build:   $BUILD_DIR, CMAKE_BUILD_TYPE=RelWithDebInfo ($(c++ --version | head -1))"
for t in "${targets[@]}"; do
  case "$t" in
    bench_*) "$BUILD_DIR/bench/$t" --benchmark_counters_tabular=true "$@" ;;
  esac
done
if [[ " ${sets[*]} " == *" python "* ]]; then
  /usr/bin/python3 bench/python_stream.py --build "$BUILD_DIR"
fi
