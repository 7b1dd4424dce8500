#!/usr/bin/env bash
# Opens the demo page in corvane-browser with the Corvane Web plug-in,
# against kestrix-sim standing in for Corvane Kestrix, all in a private home
# (BUILD/demo-home, kept afterwards for a look at the plug-in's log and the
# copied file):
# - with $DISPLAY set, in a window that stays open until it is closed;
# - otherwise headless under Xvfb, saving the page as BUILD/demo.png.
# The exit status is the page's verdict: 0 when the plug-in answered.
#
# usage: demo/run-demo.sh [BUILD]     (BUILD defaults to build; `make demo`
#                                      builds what it needs first)
set -uo pipefail

die() { echo "run-demo: $*" >&2; exit 2; }

repo="$(cd "$(dirname "$0")/.." && pwd)"
build="${1:-build}"
[ -d "$build" ] || die "no build folder $build (run make demo)"
build="$(cd "$build" && pwd)"

plugin="$build/plugin/npapi/libcorvane-web.so"
browser="$build/tools/corvane-browser/corvane-browser"
sim="$build/tools/kestrix-sim/kestrix-sim"
dialog="$build/tools/corvane-dialog/corvane-dialog"
runner="$repo/tools/corvane-browser/run-headless.sh"
for f in "$plugin" "$browser" "$sim"; do
  [ -x "$f" ] || [ -f "$f" ] || die "$f is missing (run make demo)"
done

home="$build/demo-home"
rm -rf "$home"
installs=(--install "$plugin")
[ -x "$dialog" ] && installs+=(--install "$dialog")

# The page reads its files from the private home: a small report for the
# classic download call, and 8 MiB to copy, slowly enough (64 KiB every
# 30 ms) that the transfer events show it on its way.
files='mkdir -p demo-files/remote Downloads && printf "Quarterly report\n" > demo-files/remote/report.txt && head -c 8388608 /dev/urandom > demo-files/remote/sample.bin && exec "$0" --chunk-bytes 65536 --chunk-delay-ms 30'

# Percent-encodes the home folder for the page's query string.
encode() {
  local text="$1" out="" c i
  for ((i = 0; i < ${#text}; i++)); do
    c="${text:i:1}"
    case "$c" in
      [A-Za-z0-9/._~-]) out+="$c" ;;
      *) out+="$(printf '%%%02X' "'$c")" ;;
    esac
  done
  printf '%s' "$out"
}
url="file://$repo/demo/index.html?home=$(encode "$home")"

# run-headless.sh runs a --background command with /bin/sh -c; the
# simulator's path goes in as $0 of an inner shell, single-quoted.
quote() { printf "'%s'" "$(printf '%s' "$1" | sed "s/'/'\\\\''/g")"; }
background="exec /bin/sh -c $(quote "$files") $(quote "$sim")"

if [ -n "${DISPLAY:-}" ]; then
  echo "run-demo: opening the demo in a window; close it to end the demo"
  "$runner" --home "$home" "${installs[@]}" --background "$background" \
    --wait-for ".local/share/Corvane/Corvane Kestrix/var/run/http.uri" --use-display -- \
    "$browser" --keep-open --size 1000x740 --timeout-ms 0 "$url"
  status=$?
else
  screenshot="$build/demo.png"
  rm -f "$screenshot"
  echo "run-demo: no DISPLAY: running the demo headless under Xvfb"
  "$runner" --home "$home" "${installs[@]}" --background "$background" \
    --wait-for ".local/share/Corvane/Corvane Kestrix/var/run/http.uri" -- \
    "$browser" --screenshot "$screenshot" --size 1000x740 --timeout-ms 60000 "$url"
  status=$?
  [ -f "$screenshot" ] && echo "run-demo: the page as it ended: $screenshot"
fi
echo "run-demo: private home kept in $home (the plug-in's log: .local/state/Corvane/)"
exit "$status"
