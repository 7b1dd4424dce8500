#!/usr/bin/env bash
# readAsArrayBuffer of a 50 MiB file, in process and from a page: the
# in-process figures of readfile_bench (against `base64 -w0` of the same
# file in the same run), then the same read from a page in corvane-browser
# (pages/readfile.html), timed from the call to the string in the page's
# hands. make bench runs it; the page's run is kept in BUILD/bench/readfile-page.
#
# usage: bench/readfile_page.sh [BUILD]      (BUILD defaults to build)
set -uo pipefail

die() { echo "readfile_page: $*" >&2; exit 2; }

repo="$(cd "$(dirname "$0")/.." && pwd)"
build="$(cd "${1:-$repo/build}" && pwd)" || die "no build folder"
browser="$build/tools/corvane-browser/corvane-browser"
plugin="$build/plugin/npapi/libcorvane-web.so"
dialog="$build/tools/corvane-dialog/corvane-dialog"
inprocess="$build/bench/readfile_bench"
for f in "$browser" "$plugin" "$dialog" "$inprocess"; do
  [ -f "$f" ] || die "$f is missing (make build)"
done
for tool in xdotool xvfb-run; do
  if ! command -v $tool >/dev/null; then
    echo "readfile_page: skipped: $tool is missing (Debian: .ci/packages)"
    exit 0
  fi
done

# In process: the counters by name from the CSV header.
csv="$("$inprocess" --benchmark_format=csv 2>/dev/null)" || die "readfile_bench failed"
counter() {  # name [printf format]
  printf '%s\n' "$csv" | awk -F, -v name="$1" -v format="${2:-%.1f}" '
    /^name,/ { gsub(/"/, ""); for (i = 1; i <= NF; i++) if ($i == name) col = i; next }
    col && /ReadFileAsArrayBuffer/ { printf format, $col; exit }'
}

# The page: the file is written in the private home before the browser starts.
out="$build/bench/readfile-page"
file='head -c 52428800 /dev/urandom > .readfile-bench.part && mv .readfile-bench.part readfile-bench.bin && exec sleep 600'
"$repo/tests/e2e/run-page.sh" \
  --runner "$repo/tools/corvane-browser/run-headless.sh" --browser "$browser" \
  --page "$repo/bench/pages/readfile.html" --expected "$repo/bench/pages/readfile.expected" \
  --out "$out" --timeout-ms 120000 --install "$plugin" --install "$dialog" \
  --background "$file" --wait-for readfile-bench.bin \
  --driver "exec '$repo/tests/e2e/driver.sh'" >"$out.log" 2>&1 || {
  cat "$out.log" >&2
  die "the page failed (kept in $out)"
}
times="$(sed -n 's/^BENCH: read_ms //p' "$out/console.txt")"
[ -n "$times" ] || die "the page printed no times"
page="$(tr ' ' '\n' <<<"$times" | sort -n | awk '{ t[NR] = $1 } END { printf "%.1f ms median (%.1f to %.1f, %d reads)", (NR % 2 ? t[(NR + 1) / 2] : (t[NR / 2] + t[NR / 2 + 1]) / 2), t[1], t[NR], NR }')"

echo "readAsArrayBuffer of a 50 MiB file:"
peak="$(counter peak_MiB)"
echo "  in process:  $(counter plugin_ms) ms, base64 -w0 $(counter base64_cli_ms) ms, ratio $(counter ratio %.2f)," \
  "peak $peak MiB ($(awk -v p="$peak" 'BEGIN { printf "%.2f", p / 50 }') times the file)"
echo "  in the page: $page, from the call to the string in the page's hands (corvane-browser)"
