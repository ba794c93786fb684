#!/usr/bin/env bash
# Installs what building and testing need on Debian 12 (run as root).
set -euo pipefail
pkgs=(cmake ninja-build g++ gcc pkg-config libgtest-dev libgmock-dev libbenchmark-dev liblcms2-dev
      icc-profiles-free libgs-common colord-data argyll-ref libtiff-dev libpng-dev libjpeg-dev binutils)
missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  SUDO=""
  [[ $(id -u) -ne 0 ]] && SUDO=sudo
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${missing[@]}"
fi
