#!/usr/bin/env bash
# The browser test of qxpeak view: runs view_e2e.mjs with node against Debian's chromium.
# Exits 77 (skipped) with a line saying what is missing where there is no browser, no node or
# no node_modules here; `bash scripts/setup.sh` installs all three.
#   bash tools/qxpeak/view/e2e/run.sh build/tools/qxpeak/qxpeak
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
qxpeak=$1
browser=${QXPEAK_VIEW_BROWSER:-/usr/bin/chromium}
if [[ ! -x $browser ]]; then
  echo "SKIPPED: no browser at $browser (bash scripts/setup.sh installs Debian's chromium)"
  exit 77
fi
if ! command -v node > /dev/null; then
  echo "SKIPPED: node is not installed (bash scripts/setup.sh installs it)"
  exit 77
fi
if [[ ! -d $here/node_modules/puppeteer-core ]]; then
  echo "SKIPPED: no $here/node_modules (run 'npm ci' there, or bash scripts/setup.sh)"
  exit 77
fi
exec node "$here/view_e2e.mjs" "$qxpeak" "$browser"
