#!/usr/bin/env bash
# Runs the Python package, its live view and oru-sensor from this source
# checkout, on the library built in build/ (./scripts/run.sh builds it):
#   source scripts/env.sh                  then: python3 -m oru_sensor.web --virtual 2
#   scripts/env.sh python3 examples/python_read_csv.py --virtual out/fd.csv
# BUILD=dir chooses another build tree.
_oru_root=$(cd "$(dirname "${BASH_SOURCE[0]:-$0}")/.." && pwd)
_oru_build=${BUILD:-$_oru_root/build}
case "$_oru_build" in /*) ;; *) _oru_build=$_oru_root/$_oru_build ;; esac
export PYTHONPATH="$_oru_root/python${PYTHONPATH:+:$PYTHONPATH}"
export ORU_DEVICE_LIBRARY="$_oru_build/liboru_device.so.1"
export ORU_VSENSOR_LIBRARY="$_oru_build/virtual-sensor/libusb-1.0.so.0"
export PATH="$_oru_build/bin:$PATH"
if [ ! -e "$ORU_DEVICE_LIBRARY" ]; then
  echo "env.sh: $ORU_DEVICE_LIBRARY is not built yet: run ./scripts/run.sh first" >&2
fi
unset _oru_root _oru_build
# Executed with a command (not sourced): run it in these settings.
if [ "${BASH_SOURCE[0]:-$0}" = "$0" ] && [ $# -gt 0 ]; then
  exec "$@"
fi
