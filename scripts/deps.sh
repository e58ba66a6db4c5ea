#!/usr/bin/env bash
# Installs what building, testing and benchmarking vek need on a fresh Debian machine.
# Only packages that are missing are fetched, so a second run is quick.
set -euo pipefail
want=(cmake g++ make pkg-config libgtest-dev libgmock-dev libbenchmark-dev clang libclang-rt-14-dev
      libtiff-tools ghostscript python3-pil imagemagick
      libjpeg-turbo-progs libturbojpeg0-dev libopencv-imgproc-dev libyuv-dev libtiff-dev)
missing=()
for p in "${want[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
SUDO=""
[ "$(id -u)" -ne 0 ] && SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq || true
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
