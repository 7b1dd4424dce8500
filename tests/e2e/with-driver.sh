#!/usr/bin/env bash
# usage: with-driver.sh --driver CMD --log FILE --status FILE -- COMMAND...
# Runs COMMAND (the browser) with the shell command CMD beside it on the
# same X display: run-page.sh puts this inside the xvfb-run, whose display
# only exists from then on. The driver runs in a process group of its own,
# gets SIGTERM once COMMAND has ended and the group SIGKILL 10 s later; its
# output goes to --log and its exit status to --status. Panels and driver
# get a quiet GTK environment (no accessibility or session bus, local files
# only) and TZ=UTC, so that file dates print the same everywhere. The exit
# status is COMMAND's.
set -uo pipefail

driver="" log="" status_file=""
while [ $# -gt 0 ]; do
  case "$1" in
    --driver) driver="$2"; shift 2 ;;
    --log) log="$2"; shift 2 ;;
    --status) status_file="$2"; shift 2 ;;
    --) shift; break ;;
    *) echo "with-driver: unknown argument $1" >&2; exit 2 ;;
  esac
done
[ -n "$driver" ] && [ -n "$log" ] && [ -n "$status_file" ] && [ $# -gt 0 ] ||
  { echo "with-driver: --driver, --log, --status and a command are needed" >&2; exit 2; }

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
