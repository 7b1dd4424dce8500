#!/bin/sh
# Ends the GNUstep daemons (gdnc, gpbs) that the GNUstep tests started: the
# ones whose environment names this build's GNUstep configuration ($1).
# Others' daemons are left alone.
set -u
conf="GNUSTEP_CONFIG_FILE=$1"
for dir in /proc/[0-9]*; do
    comm=$(cat "$dir/comm" 2>/dev/null) || continue
    case "$comm" in gdnc | gpbs) ;; *) continue ;; esac
    if tr '\0' '\n' <"$dir/environ" 2>/dev/null | grep -qxF "$conf"; then
        kill "${dir#/proc/}" 2>/dev/null || true
    fi
done
exit 0
