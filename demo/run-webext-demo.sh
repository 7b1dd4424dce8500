#!/usr/bin/env bash
# Opens the demo page in a browser without plug-ins, headless, through the
# Corvane Web extension and corvane-web-host, against kestrix-sim, in a
# private home (BUILD/demo-BROWSER/home, kept afterwards), and saves the
# page as BUILD/demo-BROWSER.png. The exit status is the page's verdict.
#
# usage: demo/run-webext-demo.sh chromium|firefox [BUILD]
set -uo pipefail

die() { echo "run-webext-demo: $*" >&2; exit 2; }

repo="$(cd "$(dirname "$0")/.." && pwd)"
browser="${1:-}"
case "$browser" in chromium|firefox) ;; *) die "usage: $0 chromium|firefox [BUILD]" ;; esac
build="${2:-build}"
[ -d "$build" ] || die "no build folder $build (run make demo)"
build="$(cd "$build" && pwd)"
host="$build/tools/corvane-web-host/corvane-web-host"
sim="$build/tools/kestrix-sim/kestrix-sim"
for f in "$host" "$sim"; do [ -x "$f" ] || die "$f is missing (run make demo)"; done

drivers="$repo/tests/e2e/webext"
if [ ! -d "$drivers/node_modules/ws" ]; then
  npm ci --prefix "$drivers" --no-audit --no-fund || die "npm ci failed"
fi

# The same files as the plug-in's demo: a report for the download call, and
# 8 MiB copied slowly enough that the transfer events show it on its way.
files='mkdir -p demo-files/remote Downloads && printf "Quarterly report\n" > demo-files/remote/report.txt && head -c 8388608 /dev/urandom > demo-files/remote/sample.bin'
node "$drivers/run-webext-page.mjs" --browser "$browser" --page "$repo/demo/index.html" \
  --out "$build/demo-$browser" --host "$host" --sim "$sim" --webext "$repo/webext" \
  --prefix "DEMO: " --home-query --setup "$files" --sim-args "--chunk-bytes 65536 --chunk-delay-ms 30" \
  --screenshot "$build/demo-$browser.png" --timeout-ms 60000
status=$?
echo "run-webext-demo: the page as it ended: $build/demo-$browser.png; private home kept in $build/demo-$browser/home"
exit "$status"
