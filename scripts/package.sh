#!/usr/bin/env bash
# Builds the Debian packages into dist/: liboru-device1, liboru-device-dev,
# oru-sensor and python3-oru-sensor, with CPack.
#   scripts/package.sh [amd64|arm64|armhf]     (default: this machine's architecture)
# arm64 and armhf are cross-built with the toolchain files in cmake/.
set -euo pipefail
cd "$(dirname "$0")/.."
arch=${1:-$(dpkg --print-architecture)}
native=$(dpkg --print-architecture)
./scripts/setup.sh build
options=()
if [ "$arch" != "$native" ]; then
  ./scripts/setup-cross.sh "$arch"
  case "$arch" in
    arm64) options+=(-DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-aarch64.cmake) ;;
    armhf) options+=(-DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-armhf.cmake) ;;
    *) echo "package: unknown architecture $arch (amd64, arm64 or armhf)" >&2; exit 2 ;;
  esac
  # GNUInstallDirs picks the multiarch directory only for native builds.
  options+=(-DCMAKE_INSTALL_LIBDIR="lib/$(dpkg-architecture -a"$arch" -qDEB_HOST_MULTIARCH 2>/dev/null)")
fi
build="build-deb-$arch"
# Debian's own interpreter decides where the module goes (dist-packages).
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr -DORU_BUILD_TESTS=OFF \
  -DPython3_EXECUTABLE=/usr/bin/python3 -DORU_PYTHON_PACKAGE_DIR=lib/python3/dist-packages "${options[@]}" >/dev/null
cmake --build "$build" -j"$(nproc 2>/dev/null || echo 2)" >/dev/null
mkdir -p dist
rm -f dist/*_"$arch".deb
(cd "$build" && cpack -G DEB -B "$PWD/../dist" >/dev/null)
rm -rf dist/_CPack_Packages
ls dist/*_"$arch".deb
