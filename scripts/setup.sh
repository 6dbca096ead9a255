#!/usr/bin/env bash
# Installs the Debian 12 packages qxpkutil needs to build, test and run its tool.
set -euo pipefail
packages=(cmake g++ make libgtest-dev libgmock-dev libbenchmark-dev
  libpugixml-dev zlib1g-dev libcli11-dev nlohmann-json3-dev librsvg2-bin
  topp)  # OpenMS FileInfo: the test that validates written mzML
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  sudo=""; [ "$(id -u)" -eq 0 ] || sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}"
fi
