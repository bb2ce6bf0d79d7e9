#!/bin/bash
# check_exports.sh <drop-in> <system libusb-1.0.so.0>: fails listing every
# function the system's libusb exports that the drop-in does not define.
set -euo pipefail
functions() { nm -D --defined-only "$1" | awk '$2 == "T" { print $3 }' | sort -u; }
missing=$(comm -23 <(functions "$2") <(functions "$1"))
if [ -n "$missing" ]; then
    echo "missing from $1:"
    echo "$missing"
    exit 1
fi
echo "all $(functions "$2" | wc -l) functions of $2 are defined"
