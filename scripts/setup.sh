#!/usr/bin/env bash
# Installs the Debian packages the project needs. Does nothing when they are
# all present, so it is safe to run before every build.
set -euo pipefail

PACKAGES=(
  build-essential cmake pkg-config
  libusb-1.0-0-dev
  umockdev libumockdev-dev
  libgtest-dev googletest libgmock-dev
  libbenchmark-dev
  python3
  clang libclang-rt-14-dev
  valgrind
  chromium chromium-driver python3-selenium
)

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
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
