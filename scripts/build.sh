#!/usr/bin/env bash
# Configures and builds qxpkutil into a build folder.
#   scripts/build.sh [build-dir] [extra cmake options...]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dir=${1:-$root/build}
shift || true
cmake -S "$root" -B "$dir" -DCMAKE_BUILD_TYPE=Release "$@" >/dev/null
cmake --build "$dir" -j "$(nproc)"
