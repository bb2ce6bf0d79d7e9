#!/usr/bin/env bash
# Installs the Debian cross compilers, qemu-user and the target's libraries for
# one Raspberry Pi class target (arm64 or armhf). Skips apt when all is there.
set -euo pipefail
arch="$1"
case "$arch" in
  arm64) triplet=aarch64-linux-gnu ;;
  armhf) triplet=arm-linux-gnueabihf ;;
  *) echo "unknown target $arch" >&2; exit 2 ;;
esac
# Eigen is headers only, the same for every architecture.
PACKAGES=(g++-$triplet qemu-user libusb-1.0-0-dev:$arch libgtest-dev:$arch libstdc++6:$arch libeigen3-dev)

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

SUDO=""
[ "$(id -u)" -ne 0 ] && SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
if ! dpkg --print-foreign-architectures | grep -qx "$arch"; then
  $SUDO dpkg --add-architecture "$arch"
fi
echo "setup-cross: installing ${missing[*]}"
$SUDO apt-get update -qq || echo "setup: apt-get update reported errors; trying the install anyway" >&2
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
