#!/usr/bin/env bash
# Installs what is needed, builds, and runs qxpeak on its built-in spectrum: a summary on
# the terminal, the peak table and a plot in the folder given (default: out/ in the repo).
#   scripts/demo.sh [folder]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/setup.sh"
cmake -S "$root" -B "$root/build" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$root/build" -j "$(nproc)" --target qxpeak >/dev/null
"$root/build/tools/qxpeak/qxpeak" demo -d "${1:-$root/out}"
