#!/usr/bin/env bash
# Installs, with apt-get, whatever the build and the tests need and the machine
# lacks. Quiet and quick when everything is already there.
set -euo pipefail

packages=(
  g++ make cmake pkg-config
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  clang libclang-rt-14-dev ccache
  libtiff-dev libisal-dev libpng-dev libjpeg62-turbo-dev libraw-dev libexiv2-dev nettle-dev libcli11-dev
  gimp libgimp2.0-dev xvfb xdotool
  python3-dev pybind11-dev python3-pybind11 python3-numpy python3-pytest
  python3-scipy python3-skimage python3-tifffile python3-pil
  libtiff-tools time
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -gt 0 ]; then
  echo "setup: installing ${missing[*]}" >&2
  sudo=""
  [ "$(id -u)" -ne 0 ] && sudo="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -qq
  $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
