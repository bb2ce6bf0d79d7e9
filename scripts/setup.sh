#!/usr/bin/env bash
# Installs the Debian packages the project needs, for a profile:
#   scripts/setup.sh build   what building the library and oru-sensor needs (scripts/run.sh)
#   scripts/setup.sh test    all of it: the test tiers' tools too (the default; scripts/test.sh)
# Does nothing when they are all present for this machine's own
# architecture, so it is safe to run before every build. (A cross tier that
# installed, say, libusb-1.0-0-dev:arm64 does not count for the native build.)
set -euo pipefail

profile=${1:-test}
BUILD_PACKAGES=(
  build-essential cmake pkg-config
  libusb-1.0-0-dev
  libcli11-dev nlohmann-json3-dev
  libhdf5-dev libeigen3-dev libmosquitto-dev libsystemd-dev help2man
  python3 python3-numpy
)
TEST_PACKAGES=(
  umockdev libumockdev-dev
  libgtest-dev googletest libgmock-dev
  libbenchmark-dev
  clang libclang-rt-14-dev
  valgrind
  chromium chromium-driver python3-selenium python3-aiohttp openssl
  lintian python3-venv python3-setuptools python3-wheel
  python3-usb usbutils
  python3-h5py python3-pandas mosquitto mosquitto-clients systemd bash-completion
)
case "$profile" in
  build) PACKAGES=("${BUILD_PACKAGES[@]}") ;;
  test) PACKAGES=("${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}") ;;
  *) echo "setup: unknown profile '$profile' (build or test)" >&2; exit 2 ;;
esac

native=$(dpkg --print-architecture)
# Installed for the native architecture, or architecture-independent.
installed() {
  dpkg-query -W -f='${db:Status-Status} ${Architecture}\n' "$1" 2>/dev/null |
    grep -q -E "^installed ($native|all)$"
}

missing=()
for p in "${PACKAGES[@]}"; do
  installed "$p" || missing+=("$p")
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "setup: installing ${missing[*]}"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq || echo "setup: apt-get update reported errors; trying the install anyway" >&2
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
