#!/usr/bin/env bash
# Installs the Debian 12 packages qxpkutil needs to build, test and run its tool, its Python
# package (pybind11 and the numpy, pandas, pytest and Dask of Debian's python3), the mzML
# validator the tests use, and the browser test of `qxpeak view` (headless chromium driven
# by puppeteer-core from the test's locked node packages).
set -euo pipefail
packages=(cmake g++ make libgtest-dev libgmock-dev libbenchmark-dev
  libpugixml-dev zlib1g-dev libcli11-dev nlohmann-json3-dev librsvg2-bin
  topp  # OpenMS FileInfo: the test that validates written mzML
  pybind11-dev python3-dev python3-numpy python3-pandas python3-pytest python3-dask
  python3-distributed python3-pymzml  # pymzML reads the written mzML in a test
  pkg-config libcpp-httplib-dev chromium)
# node and npm from Debian unless some node is already installed.
command -v node > /dev/null || packages+=(nodejs)
command -v npm > /dev/null || packages+=(npm)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  sudo=""; [ "$(id -u)" -eq 0 ] || sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}"
fi

# The browser test's driver, at the versions its lock file names.
e2e="$(cd "$(dirname "$0")/.." && pwd)/tools/qxpeak/view/e2e"
if [ ! -d "$e2e/node_modules/puppeteer-core" ]; then
  (cd "$e2e" && npm ci --no-audit --no-fund --ignore-scripts --loglevel=error)
fi
