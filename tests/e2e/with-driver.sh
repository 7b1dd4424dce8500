#!/usr/bin/env bash
# Runs COMMAND (the browser) with a driver beside it on the same X display:
# run-page.sh puts this between run-headless.sh and corvane-browser, so that
# the driver sees the browser's Xvfb, which only exists once xvfb-run runs.
#
# usage: with-driver.sh --driver CMD --log FILE --status FILE -- COMMAND [ARGS...]
#   --driver CMD   shell command started first, in a process group of its
#                  own; SIGTERM after COMMAND has ended, SIGKILL for the
#                  whole group 10 s later
#   --log FILE     the driver's standard output and error
#   --status FILE  receives the driver's exit status
# The panels that the plug-in starts and the driver inherit a quiet GTK
# environment (no accessibility bus, no session bus, local files only) and
# TZ=UTC, so that file dates print the same everywhere.
# The exit status is COMMAND's.
set -uo pipefail

die() { echo "with-driver: $*" >&2; exit 2; }

driver="" log="" status_file=""
while [ $# -gt 0 ]; do
  case "$1" in
    --driver) driver="$2"; shift 2 ;;
    --log) log="$2"; shift 2 ;;
    --status) status_file="$2"; shift 2 ;;
    --) shift; break ;;
    *) die "unknown argument $1" ;;
  esac
done
[ -n "$driver" ] && [ -n "$log" ] && [ -n "$status_file" ] || die "--driver, --log and --status are needed"
[ $# -gt 0 ] || die "no command given"

export NO_AT_BRIDGE=1 GIO_USE_VFS=local TZ=UTC
export DBUS_SESSION_BUS_ADDRESS="unix:path=$HOME/.no-session-bus"

rm -f "$status_file"
setsid /bin/sh -c "$driver" > "$log" 2>&1 < /dev/null &
driver_pid=$!

"$@"
status=$?

kill -TERM "$driver_pid" 2>/dev/null
for _ in $(seq 100); do kill -0 "$driver_pid" 2>/dev/null || break; sleep 0.1; done
if kill -0 "$driver_pid" 2>/dev/null; then
  echo "with-driver: the driver did not end on SIGTERM, killed" >> "$log"
fi
kill -KILL -- "-$driver_pid" 2>/dev/null
wait "$driver_pid"
echo $? > "$status_file"
exit "$status"
