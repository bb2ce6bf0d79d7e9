#!/usr/bin/env bash
# oru-sensor streaming a virtual sensor paced in real time (shutter speed 1,
# about 930 frames/s) into a CSV file for SECONDS (default 600), n frames per
# reading: reports the process's CPU, its RSS after 1 minute and at the end,
# and checks that consecutive rows neither share nor skip a frame.
#   bench/cli_soak.sh N [SECONDS] [BUILD_DIR]
set -euo pipefail
n=${1:?frames per reading}
seconds=${2:-600}
build=${3:-build}
out=$(mktemp /tmp/oru-soak.XXXXXX.csv)
trap 'rm -f "$out"' EXIT
ORU_VSENSOR_REALTIME=1 "$build/bin/oru-sensor" --virtual read --shutter 1 -n "$n" --duration "$seconds" -o "$out" &
pid=$!
ticks=$(getconf CLK_TCK)
cpu() { awk '{ print $14 + $15 }' "/proc/$pid/stat"; }
rss() { awk '/^VmRSS/ { print $2 }' "/proc/$pid/status"; }
sleep 60
rss_minute=$(rss)
sleep $((seconds - 65))
rss_end=$(rss)
cpu_end=$(cpu)
wait "$pid"
rows=$(($(wc -l < "$out") - 1))
gaps=$(cut -d, -f3,4 "$out" | awk -F, 'NR > 2 && $1 != last + 1 { bad++ } NR > 1 { last = $2 } END { print bad + 0 }')
echo "n=$n seconds=$seconds rows=$rows rows_not_following_on=$gaps" \
     "cpu_percent=$(awk -v c="$cpu_end" -v t="$ticks" -v s="$((seconds - 5))" 'BEGIN { printf "%.1f", 100 * c / t / s }')" \
     "rss_kb_after_1min=$rss_minute rss_kb_at_end=$rss_end bytes=$(stat -c %s "$out")"
