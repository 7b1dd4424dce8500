#!/usr/bin/env bash
# Lifecycle soak: bench/pages/lifecycle-soak.html in corvane-browser with
# the plug-in, against kestrix-sim, in a private home under Xvfb. Reads the
# browser's resident memory (VmRSS) at the page's marks and reports the
# growth per cycle of plug-in instances next to the growth per cycle of the
# same page work without a plug-in, measured in the same run.
#
# usage: lifecycle_soak.sh --runner RUN_HEADLESS --browser BROWSER
#            --plugin LIB --sim KESTRIX_SIM --page PAGE --out DIR [--cycles N]
# Other arguments (those `make bench` gives every benchmark) are ignored.
# SOAK_CYCLES in the environment overrides the default of 1000 cycles.
set -uo pipefail

die() { echo "lifecycle_soak: $*" >&2; exit 2; }

runner="" browser="" plugin="" sim="" page="" out="" cycles="${SOAK_CYCLES:-1000}"
while [ $# -gt 0 ]; do
  case "$1" in
    --runner) runner="$2"; shift 2 ;;
    --browser) browser="$2"; shift 2 ;;
    --plugin) plugin="$2"; shift 2 ;;
    --sim) sim="$2"; shift 2 ;;
    --page) page="$2"; shift 2 ;;
    --out) out="$2"; shift 2 ;;
    --cycles) cycles="$2"; shift 2 ;;
    *) shift ;;
  esac
done
for v in runner browser plugin sim page out; do
  [ -n "${!v}" ] || die "--$v is missing"
done

rm -rf "$out"
mkdir -p "$out" || die "cannot create $out"
pidfile="$out/browser.pid"

declare -A rss
: > "$out/console.txt"
"$runner" --home "$out/home" --install "$plugin" \
  --background "exec '$sim' --quiet" \
  --wait-for ".local/share/Corvane/Corvane Kestrix/var/run/http.uri" -- \
  /bin/sh -c 'echo $$ > "$0"; exec "$@"' "$pidfile" \
  "$browser" --timeout-ms 900000 "file://$page?cycles=$cycles" > "$out/console.txt" 2>"$out/stderr.txt" &
runner_pid=$!

# Follow the console as the browser writes it.
verdict=""
exec 3< <(tail -n +1 -f "$out/console.txt" --pid "$runner_pid")
while IFS= read -r line <&3; do
  case "$line" in
    "SOAK: mark "*)
      name="${line#SOAK: mark }"
      kib="$(awk '/^VmRSS:/ { print $2 }' "/proc/$(cat "$pidfile")/status" 2>/dev/null)"
      rss[$name]="${kib:-0}"
      ;;
    "SOAK: "*) echo "  ${line#SOAK: }" ;;
    VERDICT:*) verdict="$line" ;;
  esac
done
wait "$runner_pid"
status=$?

[ "$status" = 0 ] && [ "$verdict" = "VERDICT: PASS" ] || {
  echo "lifecycle_soak: the page did not pass (status $status, ${verdict:-no verdict}); see $out" >&2
  exit 1
}
for m in baseline-start baseline-end plugin-start plugin-end; do
  [ -n "${rss[$m]:-}" ] && [ "${rss[$m]}" != 0 ] || die "no memory reading at $m"
done
awk -v c="$cycles" -v b0="${rss[baseline-start]}" -v b1="${rss[baseline-end]}" \
    -v p0="${rss[plugin-start]}" -v p1="${rss[plugin-end]}" 'BEGIN {
  base = (b1 - b0) / c; plug = (p1 - p0) / c;
  printf "  cycles per phase: %d\n", c;
  printf "  browser RSS, elements without a plug-in: %d -> %d KiB, %.2f KiB per cycle\n", b0, b1, base;
  printf "  browser RSS, plug-in instances:          %d -> %d KiB, %.2f KiB per cycle\n", p0, p1, plug;
  printf "  growth per plug-in cycle beyond the baseline: %.2f KiB (goal: under 4)\n", plug - base;
}'
