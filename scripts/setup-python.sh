#!/usr/bin/env bash
# Builds the qxpkutil Python package and installs it for Debian's /usr/bin/python3 (into
# its /usr/local site folder), so that `python3 -c "import qxpkutil"` works from any folder.
#   scripts/setup-python.sh [build-dir]      (default: build-python in the repository)
# Another interpreter: PYTHON=/path/to/python3 scripts/setup-python.sh
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dir=${1:-$root/build-python}
python=${PYTHON:-/usr/bin/python3}
bash "$root/scripts/setup.sh"
cmake -S "$root" -B "$dir" -DCMAKE_BUILD_TYPE=Release -DPython3_EXECUTABLE="$python" \
  -DQXPKUTIL_BUILD_TESTS=OFF -DQXPKUTIL_BUILD_BENCHMARKS=OFF -DQXPKUTIL_BUILD_EXAMPLES=OFF \
  -DQXPKUTIL_BUILD_TOOLS=OFF >/dev/null
cmake --build "$dir" -j "$(nproc)" --target _core
sudo=""; [ "$(id -u)" -eq 0 ] || sudo="sudo"
$sudo cmake --install "$dir" --component python
cd / && "$python" -c "import qxpkutil; print('qxpkutil', qxpkutil.__version__, 'in', qxpkutil.__path__[0])"
