#!/usr/bin/env bash
# Builds one fuzz target with clang and libFuzzer and runs it for a number of seconds, at
# low priority, from its seed corpus. New inputs go to build-fuzz/corpus/<target>, findings
# to build-fuzz/findings/<target>/ (copy one into fuzz/corpus/<target>/ to keep it).
#   scripts/fuzz.sh TARGET SECONDS [extra libFuzzer options...]
#   scripts/fuzz.sh list            the targets
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${QXPKUTIL_FUZZ_BUILD:-$root/build-fuzz}
if [[ ${1:-} == list || $# -lt 2 ]]; then
  grep -v '^#' "$root/fuzz/CMakeLists.txt" | grep -o '\<fuzz_[a-z_]*' | sort -u
  [[ ${1:-} == list ]] && exit 0
  echo "usage: scripts/fuzz.sh TARGET SECONDS [libFuzzer options]" >&2
  exit 2
fi
target=$1 seconds=$2
shift 2
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ \
  -DQXPKUTIL_FUZZ=ON -DQXPKUTIL_BUILD_TESTS=OFF -DQXPKUTIL_BUILD_BENCHMARKS=OFF \
  -DQXPKUTIL_BUILD_EXAMPLES=OFF -DQXPKUTIL_BUILD_TOOLS=ON -DQXPKUTIL_INSTALL=OFF \
  "${launcher[@]}" >/dev/null
nice -n 15 cmake --build "$build" -j "$(nproc)" --target "$target" >/dev/null
corpus=$build/corpus/$target findings=$build/findings/$target
mkdir -p "$corpus" "$findings"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
  nice -n 15 "$build/fuzz/$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
  -print_final_stats=1 -artifact_prefix="$findings/" "$@" "$corpus" "$root/fuzz/corpus/$target"
