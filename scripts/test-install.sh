#!/usr/bin/env bash
# Installs the build tree into a temporary prefix and builds the examples
# against the installed package twice: through the CMake package and through
# pkg-config. Then runs them on virtual sensors.   Usage: test-install.sh [BUILD_DIR]
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD=${1:-build}
PREFIX=$(mktemp -d /tmp/oru-install.XXXXXX)
trap 'rm -rf "$PREFIX"' EXIT

INSTALL_LOG=$(cmake --install "$BUILD" --prefix "$PREFIX")
# udev reads no rules under this prefix: the install says what to run.
grep -q "udev does not read $PREFIX/lib/udev/rules.d" <<<"$INSTALL_LOG" || { echo "install test: no udev hint"; exit 1; }
# Staged for /usr/local, the Python package lands where Debian's python3
# looks under that prefix (not a site-packages it never reads).
if want=$(/usr/bin/python3 -c 'import sys; print(next(p for p in sys.path if p.startswith("/usr/local/lib/")))' 2>/dev/null); then
  DESTDIR="$PREFIX/stage" cmake --install "$BUILD" --prefix /usr/local --component python >/dev/null
  test -f "$PREFIX/stage$want/oru_sensor/__init__.py" || { echo "install test: Python package not in $want"; exit 1; }
  rm -rf "$PREFIX/stage"
fi
LIBDIR=$(dirname "$(find "$PREFIX" -name 'liboru_device.so.1' | head -1)")
DROPIN="$LIBDIR/oru_device/virtual-sensor"
# Where the configured interpreter's place for this prefix is.
PYDIR=$(dirname "$(find "$PREFIX" -type d -name oru_sensor | head -1)")
test -L "$LIBDIR/liboru_device.so" && test -e "$LIBDIR/liboru_device.so.1" || { echo "SONAME links missing"; exit 1; }

# 1. CMake package
cmake -S examples/standalone -B "$PREFIX/ex-cmake" -DCMAKE_PREFIX_PATH="$PREFIX" >/dev/null
cmake --build "$PREFIX/ex-cmake" >/dev/null

# 2. pkg-config
export PKG_CONFIG_PATH="$LIBDIR/pkgconfig"
mkdir -p "$PREFIX/ex-pc"
cc -Wall -Wextra -o "$PREFIX/ex-pc/c_read_filter_data" examples/c_read_filter_data.c $(pkg-config --cflags --libs oru_device)
c++ -std=c++17 -Wall -Wextra -o "$PREFIX/ex-pc/cpp_registry" examples/cpp_registry.cpp $(pkg-config --cflags --libs oru_device)

# Run them on two virtual sensors (drop-in USB library first on the path).
export LD_LIBRARY_PATH="$DROPIN:$LIBDIR" ORU_VSENSOR_COUNT=2 ORU_VSENSOR_REALTIME=0
for exe in "$PREFIX/ex-cmake/c_read_filter_data" "$PREFIX/ex-pc/c_read_filter_data" \
           "$PREFIX/ex-cmake/cpp_registry" "$PREFIX/ex-pc/cpp_registry"; do
  "$exe" >/dev/null 2>&1 || { echo "install test: $exe failed"; exit 1; }
done
# The installed Python package finds its library without any environment.
env -u LD_LIBRARY_PATH PYTHONPATH="$PYDIR" ORU_VSENSOR_REALTIME=0 \
  python3 -c 'import oru_sensor
with oru_sensor.connect(virtual=1) as s: assert len(s[0].read_filter_data(1)) == 1024'
"$PREFIX/bin/oru-sensor" --virtual=2 list >/dev/null
( cd "$PREFIX" && PYTHONPATH="$PYDIR" ORU_VSENSOR_REALTIME=0 \
    python3 "$OLDPWD/examples/python_read_csv.py" --virtual "$PREFIX/fd.csv" >/dev/null )
test "$(wc -l < "$PREFIX/fd.csv")" -eq 1025
echo "install test: ok"
