#!/usr/bin/env bash
# Runs one end-to-end page in corvane-browser under Xvfb with a private home
# and compares what the page printed with the expected text.
#
# usage: run-page.sh --runner RUN_HEADLESS --browser BROWSER --page PAGE
#                    --expected FILE --out DIR [--filter REGEX] [--timeout-ms N]
#                    [--install FILE]... [--background CMD] [--wait-for PATH]
#                    [--driver CMD] [--check PROGRAM [--check-arg ARG]...]
# DIR is emptied and then keeps the run: console.txt, actual.txt (the lines
# compared, the page folder's URL cut out and the private home shown as
# "~"), screenshot.png and home/. --driver CMD runs beside the browser on its
# display (with-driver.sh; output in driver.txt, must end with 0), and the
# page gets the private home as "?home=PATH". --check PROGRAM runs PROGRAM
# ARG... screenshot.png afterwards; it must end with 0 (output in check.txt).
set -uo pipefail

die() { echo "run-page: $1" >&2; exit "${2:-2}"; }

runner="" browser="" page="" expected="" out=""
filter="^E2E: " timeout_ms=30000
runner_args=()
driver="" check=()
while [ $# -gt 0 ]; do
  [ $# -ge 2 ] || die "$1 needs a value"
  case "$1" in
    --runner) runner="$2"; shift 2 ;;
    --browser) browser="$2"; shift 2 ;;
    --page) page="$2"; shift 2 ;;
    --expected) expected="$2"; shift 2 ;;
    --out) out="$2"; shift 2 ;;
    --filter) filter="$2"; shift 2 ;;
    --timeout-ms) timeout_ms="$2"; shift 2 ;;
    --install|--background|--wait-for) runner_args+=("$1" "$2"); shift 2 ;;
    --driver) driver="$2"; shift 2 ;;
    --check) check=("$2"); shift 2 ;;
    --check-arg) [ ${#check[@]} -gt 0 ] || die "--check-arg before --check"; check+=("$2"); shift 2 ;;
    *) die "unknown argument $1" ;;
  esac
done
for v in runner browser page expected out; do
  [ -n "${!v}" ] || die "--$v is missing"
done
[ -f "$page" ] || die "no page $page"
[ -f "$expected" ] || die "no expected text $expected"

rm -rf "$out"
mkdir -p "$out" || die "cannot create $out"
out="$(cd "$out" && pwd)"
page="$(cd "$(dirname "$page")" && pwd)/$(basename "$page")"

home="$out/home"
target="$page"
wrapper=()
if [ -n "$driver" ]; then
  # Enough of percent-encoding for a path in a query.
  query="$home"
  query="${query//%/%25}"; query="${query// /%20}"; query="${query//#/%23}"
  query="${query//&/%26}"; query="${query//+/%2B}"; query="${query//\?/%3F}"
  target="file://$page?home=$query"
  wrapper=("$(dirname "$0")/with-driver.sh" --driver "$driver"
           --log "$out/driver.txt" --status "$out/driver-status" --)
fi
# In sanitized builds every one of our processes writes its reports to
# san.<pid> here, and a leak does not end it: the leaks are judged below.
export ASAN_OPTIONS="${ASAN_OPTIONS:+$ASAN_OPTIONS:}exitcode=0:log_path=$out/san"
export LSAN_OPTIONS="${LSAN_OPTIONS:+$LSAN_OPTIONS:}suppressions=$(cd "$(dirname "$0")" && pwd)/lsan.supp"
E2E_CONSOLE="$out/console.txt" "$runner" --home "$home" "${runner_args[@]}" -- "${wrapper[@]}" \
  "$browser" --screenshot "$out/screenshot.png" --timeout-ms "$timeout_ms" "$target" > "$out/console.txt"
status=$?

page_dir_url="file://$(dirname "$page")/"
while IFS= read -r line || [ -n "$line" ]; do
  line="${line//"$page_dir_url"/}"
  line="${line//"$home"/"~"}"
  [[ "$line" =~ $filter ]] && printf '%s\n' "$line"
done < "$out/console.txt" > "$out/actual.txt"

failed=0
fail() {  # message [file to show]
  echo "run-page: $1" >&2
  [ -z "${2:-}" ] || sed 's/^/  | /' "$2" >&2
  failed=1
}
[ "$status" = 0 ] || fail "corvane-browser exited with $status"
diff -u --label expected --label actual "$expected" "$out/actual.txt" >&2 ||
  fail "the page's output differs from $expected"
if [ -n "$driver" ] && [ "$(cat "$out/driver-status" 2>/dev/null)" != 0 ]; then
  fail "the driver failed (status $(cat "$out/driver-status" 2>/dev/null || echo unknown)):" "$out/driver.txt"
fi
if [ ${#check[@]} -gt 0 ]; then
  "${check[@]}" "$out/screenshot.png" > "$out/check.txt" 2>&1 || fail "the screenshot check failed:" "$out/check.txt"
fi
# Any error counts, and any leak with a frame of ours above the allocator.
# A leak whose whole stack lies in system libraries is QtWebKit's, cairo's,
# fontconfig's or D-Bus's own, left at exit; one the plug-in caused always
# has the plug-in's frame, as the browser calls it.
for report in "$out"/san.*; do
  [ -e "$report" ] || continue
  if awk -v RS= '/ERROR: AddressSanitizer|runtime error:/ { bad = 1 }
      /leak of/ { n = split($0, frame, "\n")
        for (i = 2; i <= n; i++)
          if (frame[i] ~ /#[1-9][0-9]* / && frame[i] !~ /\((\/usr)?\/lib\/|\(<unknown module>\)/) bad = 1 }
      END { exit !bad }' "$report"; then
    echo "run-page: a sanitizer reported ($report):" >&2
    sed 's/^/  | /' "$report" >&2
    failed=1
  fi
done
[ "$failed" = 0 ] || { fail "everything the page printed:" "$out/console.txt"; die "the run is kept in $out" 1; }
