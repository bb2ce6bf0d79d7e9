#!/usr/bin/env bash
# The main job: install what is missing, build, and read filter data from the
# attached sensor, or from a virtual sensor when none is attached. Prints a
# summary table and writes the plot to out/filter_data.svg (override: OUT=...).
set -euo pipefail
cd "$(dirname "$0")/.."
say() { printf 'run.sh: %s\n' "$*"; }

say "checking the Debian packages the build needs (scripts/setup.sh build)"
./scripts/setup.sh build
JOBS=$(nproc 2>/dev/null || echo 2)
say "configuring build/ with CMake"
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORU_BUILD_TESTS=OFF >/dev/null
TARGETS=(oru_device vsensor_dropin oru-sensor)
say "building ${#TARGETS[@]} targets (the library, the virtual sensor, oru-sensor) with $JOBS jobs;" \
  "the first build takes a minute or two"
LOG=build/run-build.log
# CMake's progress: one line that updates on a terminal, a line every 15 s
# otherwise; the whole log when the build fails.
cmake --build build -j"$JOBS" --target "${TARGETS[@]}" >"$LOG" 2>&1 &
build_pid=$!
ticks=0
while kill -0 "$build_pid" 2>/dev/null; do
  sleep 1
  ticks=$((ticks + 1))
  step=
  line=$(grep '^\[ *[0-9]*%\]' "$LOG" | tail -1) || true
  if [[ $line =~ ^\[\ *([0-9]+%)\]\ ([A-Za-z]+).*[\ /]([^\ /]+)$ ]]; then
    step="${BASH_REMATCH[1]} ${BASH_REMATCH[2],,} ${BASH_REMATCH[3]%.o}"
  fi
  if [ -t 1 ]; then
    printf '\r\033[K  %s' "$step"
  elif [ $((ticks % 15)) = 0 ] && [ -n "$step" ]; then
    echo "  $step"
  fi
done
[ -t 1 ] && printf '\r\033[K'
if ! wait "$build_pid"; then
  cat "$LOG" >&2
  say "the build failed (log: $LOG)" >&2
  exit 1
fi
say "built build/bin/oru-sensor"

attached=0
for d in /sys/bus/usb/devices/*; do
  if [ "$(cat "$d/idVendor" 2>/dev/null)" = "0483" ] && [ "$(cat "$d/idProduct" 2>/dev/null)" = "5740" ]; then
    attached=1
  fi
done
source_opt=()
if [ "$attached" = 0 ]; then
  say "no sensor attached: reading from a virtual sensor"
  source_opt=(--virtual=1)
fi
OUT=${OUT:-out/filter_data.svg}
mkdir -p "$(dirname "$OUT")"
# Without hardware, show a tungsten lamp seen through the filter array.
export ORU_VSENSOR_SCENE=${ORU_VSENSOR_SCENE:-halogen} ORU_VSENSOR_NOISE=${ORU_VSENSOR_NOISE:-2}
say "reading: auto exposure, then 3 readings of 10 frames each"
build/bin/oru-sensor "${source_opt[@]}" read --auto-exposure -n 10 --repeat 3 --plot "$OUT" "$@"
