#!/usr/bin/env bash
# Installs what is needed, builds, and runs the main job on its built-in input.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/setup.sh"
bash "$root/scripts/build.sh" "$root/build" >/dev/null
"$root/build/examples/peak_table_demo"
