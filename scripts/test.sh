#!/usr/bin/env bash
# Installs what is needed, then builds and runs every test twice: an optimised build with
# warnings as errors, and a build under AddressSanitizer and UndefinedBehaviorSanitizer.
#   scripts/test.sh            both builds
#   scripts/test.sh release    only the optimised build
#   scripts/test.sh sanitize   only the sanitizer build
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
which=${1:-all}
bash "$root/scripts/setup.sh"
jobs=$(nproc)
if [[ $which == all || $which == release ]]; then
  bash "$root/scripts/build.sh" "$root/build" -DQXPKUTIL_WERROR=ON
  ctest --test-dir "$root/build" -j "$jobs" --output-on-failure
fi
if [[ $which == all || $which == sanitize ]]; then
  # Benchmarks are not run under the sanitizers; skip building them there.
  bash "$root/scripts/build.sh" "$root/build-sanitize" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DQXPKUTIL_SANITIZE=ON -DQXPKUTIL_WERROR=ON -DQXPKUTIL_BUILD_BENCHMARKS=OFF
  ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
    ctest --test-dir "$root/build-sanitize" -j "$jobs" --output-on-failure
fi
