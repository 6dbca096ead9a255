#!/usr/bin/env bash
# Prints the speed table of docs/performance.md: the library on the TOF-like spectrum
# (CPU time, median of 5), qxpeak as a whole process, -j 1 against -j 2, and the peers
# that are installed (scipy, OpenMS PeakPickerHiRes), all in one run.
#   bash bench/performance/run.sh [BUILD_DIR]      (default: build; Release expected)
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
build=${1:-$root/build}
if [[ ! -f $build/CMakeCache.txt ]]; then
  cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release
fi
cmake --build "$build" -j"$(nproc)" --target qxpkutil_performance qxpeak >/dev/null
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
bench=$build/bench/performance/qxpkutil_performance

echo "Load before: $(cut -d' ' -f1-3 /proc/loadavg) on $(nproc) cores; $(date -u '+%F %H:%M UTC')"
"$bench" --benchmark_repetitions=5 --benchmark_report_aggregates_only=true \
  --benchmark_format=json >"$work/library.json"
"$bench" --write-spectrum="$work/spectrum.bin"
python3 "$here/peers.py" "$work" "$build/tools/qxpeak/qxpeak" "$work/library.json"
echo "Load after: $(cut -d' ' -f1-3 /proc/loadavg)"
