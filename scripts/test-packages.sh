#!/usr/bin/env bash
# The Debian packages as a user meets them:
#   1. builds the amd64 packages and runs lintian: no errors. The warnings
#      that stay: no-manual-page (oru-sensor has --help, no man page yet) and
#      maintscript-calls-ldconfig [postrm] (written by CPack; the ldconfig
#      trigger does the work at install time);
#   2. installs them on this machine when CI=true and running as root (else
#      into a throwaway root unpacked with dpkg -x) and uses them with no
#      environment variables: oru-sensor --virtual read -n 2, import in
#      /usr/bin/python3, pkg-config --libs oru_device, the C example built
#      against the installed -dev package; then removes them;
#   3. builds the arm64 and armhf packages, checks their architecture, file
#      list and dependencies, and runs their oru-sensor under qemu-user.
# With ORU_RESULTS_DIR set, it leaves its counts there.
set -uo pipefail
cd "$(dirname "$0")/.."
passed=0
failed=0
check() {
  local what=$1
  shift
  if "$@"; then
    echo "ok   $what"
    passed=$((passed + 1))
  else
    echo "FAIL $what"
    failed=$((failed + 1))
  fi
}
finish() {
  echo "packages: $passed passed, $failed failed"
  [ -n "${ORU_RESULTS_DIR:-}" ] && echo "$passed $failed" >"$ORU_RESULTS_DIR/packages.count"
  [ "$failed" -eq 0 ]
  exit
}
command -v lintian >/dev/null || { apt-get install -y -qq --no-install-recommends lintian >/dev/null; }

./scripts/package.sh amd64 >/dev/null || { failed=1; finish; }
debs=(dist/liboru-device1_*_amd64.deb dist/liboru-device-dev_*_amd64.deb dist/oru-sensor_*_amd64.deb
      dist/python3-oru-sensor_*_amd64.deb)
lintian_errors() { ! lintian --tag-display-limit 0 "${debs[@]}" 2>/dev/null | grep -E '^E: '; }
check "lintian: no errors" lintian_errors

work=$(mktemp -d /tmp/oru-packages.XXXXXX)
trap 'rm -rf "$work"' EXIT
if [ "${CI:-}" = true ] && [ "$(id -u)" -eq 0 ]; then
  root=""
  check "install with dpkg" dpkg -i "${debs[@]}"
  run() { env -i PATH=/usr/bin:/bin HOME="$work" "$@"; }
else
  # A throwaway root: the packages unpacked, the library found through it.
  root=$work/root
  for d in "${debs[@]}"; do dpkg -x "$d" "$root"; done
  multiarch=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
  # The module's own library path points into /usr, so it is told where the
  # unpacked library is.
  run() {
    env -i PATH="$root/usr/bin:/usr/bin:/bin" HOME="$work" LD_LIBRARY_PATH="$root/usr/lib/$multiarch" \
      PYTHONPATH="$root/usr/lib/python3/dist-packages" PKG_CONFIG_PATH="$root/usr/lib/$multiarch/pkgconfig" \
      ORU_DEVICE_LIBRARY="$root/usr/lib/$multiarch/liboru_device.so.1" "$@"
  }
fi
libdir=$root/usr/lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)
read_two() { run oru-sensor --virtual read -n 2 | grep "A4486-3-12-40-2" >/dev/null; }
check "oru-sensor --virtual read -n 2" read_two
check "import oru_sensor and the live view's server in /usr/bin/python3" \
  run /usr/bin/python3 -c 'import oru_sensor, oru_sensor.web._server'
python_depends() { dpkg-deb -f dist/python3-oru-sensor_*_amd64.deb Depends | grep "python3-aiohttp" >/dev/null; }
check "python3-oru-sensor depends on python3-aiohttp" python_depends
python_reads() {
  run /usr/bin/python3 -c 'import oru_sensor
with oru_sensor.connect(virtual=1) as s: assert len(s[0].read_filter_data(2)) == 1024'
}
check "the installed module reads a virtual sensor" python_reads
pc_libs() { [ "$(run pkg-config --libs oru_device)" = "-loru_device" ] || run pkg-config --libs oru_device | grep -q -- "-loru_device"; }
check "pkg-config --libs oru_device" pc_libs
example() {
  run cc -o "$work/example" examples/c_read_filter_data.c $(run pkg-config --cflags --libs oru_device) &&
    run env LD_LIBRARY_PATH="$libdir/oru_device/virtual-sensor:$libdir" ORU_VSENSOR_COUNT=1 "$work/example" >/dev/null
}
check "the C example against the installed -dev package" example
udev_rule() { test -f "$root/usr/lib/udev/rules.d/60-oru-sensor.rules" && grep -q 'ID_MM_DEVICE_IGNORE}="1"' "$root/usr/lib/udev/rules.d/60-oru-sensor.rules"; }
check "udev rule where udev reads it" udev_rule
if [ -z "$root" ]; then
  check "remove with dpkg" dpkg --purge python3-oru-sensor oru-sensor liboru-device-dev liboru-device1
fi

for arch in arm64 armhf; do
  ./scripts/package.sh "$arch" >/dev/null || { echo "FAIL $arch packages"; failed=$((failed + 1)); continue; }
  cross_ok() {
    local d
    for d in dist/*_"$arch".deb; do
      [ "$(dpkg-deb -f "$d" Architecture)" = "$arch" ] || return 1
    done
    # grep reads to the end: with -q it would close the pipe on dpkg-deb.
    dpkg-deb -f dist/liboru-device1_*_"$arch".deb Depends | grep "libusb-1.0-0" >/dev/null &&
      dpkg-deb -c dist/liboru-device1_*_"$arch".deb |
      grep "usr/lib/$(dpkg-architecture -a"$arch" -qDEB_HOST_MULTIARCH 2>/dev/null)/liboru_device.so.1" >/dev/null &&
      dpkg-deb -c dist/oru-sensor_*_"$arch".deb | grep "usr/bin/oru-sensor" >/dev/null
  }
  check "$arch packages: architecture, files, dependencies" cross_ok
  cross_run() {
    local r=$work/$arch qemu triplet
    case "$arch" in arm64) qemu=qemu-aarch64; triplet=aarch64-linux-gnu ;; armhf) qemu=qemu-arm; triplet=arm-linux-gnueabihf ;; esac
    for d in dist/*_"$arch".deb; do dpkg -x "$d" "$r"; done
    # The target's own multiarch loader (libc6:$arch), not QEMU_LD_PREFIX: qemu 7.2
    # hangs at the first pthread_create when it maps the loader from a prefix.
    env -i LD_LIBRARY_PATH="$r/usr/lib/$triplet" timeout -s KILL 120 \
      "$qemu" "$r/usr/bin/oru-sensor" --virtual read -n 2 | grep "A4486-3-12-40-2" >/dev/null
  }
  check "$arch oru-sensor under qemu-user" cross_run
done
finish
