#!/usr/bin/env bash
# Browser benchmark: a kestrixHttpRequest round trip from the page through
# the extension and its native host (headless Chromium and Firefox),
# against the same through the plug-in in QtWebKit, measured in one run
# against kestrix-sim; and a 50 MiB readAsArrayBuffer through the
# extension (the file chosen in a panel that driver.sh answers).
# Prints each figure and the extension's round trip as a ratio of the
# plug-in's.
#
# usage: bench/browsers/run.sh [BUILD]      (after make build; needs npm ci
#                                            --prefix tests/e2e/webext)
set -uo pipefail
repo="$(cd "$(dirname "$0")/../.." && pwd)"
build="$(cd "${1:-$repo/build}" && pwd)"
page="$repo/bench/browsers/roundtrip.html"
out="$build/bench-browsers"
rm -rf "$out" && mkdir -p "$out"

figure() { sed -n "s/^BENCH: .*$1=\([0-9]*\).*/\1/p" "$2" | head -1; }

# The plug-in in QtWebKit.
sim="$build/tools/kestrix-sim/kestrix-sim"
"$repo/tools/corvane-browser/run-headless.sh" --home "$out/qtwebkit-home" \
  --install "$build/plugin/npapi/libcorvane-web.so" \
  --background "exec '$sim' --quiet" --wait-for ".local/share/Corvane/Corvane Kestrix/var/run/http.uri" -- \
  "$build/tools/corvane-browser/corvane-browser" --timeout-ms 120000 "file://$page" > "$out/qtwebkit.txt" 2>&1
plugin_us="$(figure roundtrip_mean_us "$out/qtwebkit.txt")"
echo "plug-in in QtWebKit:    round trip mean ${plugin_us:-?} us"

for browser in chromium firefox; do
  node "$repo/tests/e2e/webext/run-webext-page.mjs" --browser "$browser" --page "$page" --prefix "BENCH: " \
    --out "$out/$browser" --host "$build/tools/corvane-web-host/corvane-web-host" --sim "$sim" \
    --webext "$repo/webext" --driver "$repo/tests/e2e/driver.sh" --timeout-ms 180000 > "$out/$browser.txt" 2>&1
  us="$(figure roundtrip_mean_us "$out/$browser.txt")"
  ms="$(figure read_50MiB_ms "$out/$browser.txt")"
  ratio="?"
  [ -n "$us" ] && [ -n "$plugin_us" ] && [ "$plugin_us" -gt 0 ] && ratio="$(awk "BEGIN { printf \"%.1f\", $us / $plugin_us }")"
  printf '%-23s round trip mean %s us (%sx the plug-in), 50 MiB read %s ms\n' \
    "extension in $browser:" "${us:-?}" "$ratio" "${ms:-?}"
done
