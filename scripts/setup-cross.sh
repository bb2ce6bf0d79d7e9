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

# `oru-sensor log` (CSV, JSON Lines, MQTT, systemd) when the target's
# libraries install; without them the cross build leaves `log` out.
LOG_PACKAGES=(libmosquitto-dev:$arch libsystemd-dev:$arch)

installed() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q "install ok installed"; }
install_log_packages() {
  local want=()
  for p in "${LOG_PACKAGES[@]}"; do installed "$p" || want+=("$p"); done
  [ ${#want[@]} -eq 0 ] && return 0
  # Multi-Arch: same needs the host's libssl3 and liblzma5 at the target's
  # versions; a mirror without them leaves `log` out of this target.
  $SUDO apt-get install -y -qq --no-install-recommends "${want[@]}" ||
    echo "setup-cross: ${want[*]} not installable; oru-sensor log is left out of the $arch build" >&2
}

SUDO=""
[ "$(id -u)" -ne 0 ] && SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive

missing=()
for p in "${PACKAGES[@]}"; do
  installed "$p" || missing+=("$p")
done
if [ ${#missing[@]} -eq 0 ]; then
  install_log_packages
  exit 0
fi

if ! dpkg --print-foreign-architectures | grep -qx "$arch"; then
  $SUDO dpkg --add-architecture "$arch"
fi
echo "setup-cross: installing ${missing[*]}"
$SUDO apt-get update -qq || echo "setup: apt-get update reported errors; trying the install anyway" >&2
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
install_log_packages
