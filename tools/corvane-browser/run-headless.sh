#!/usr/bin/env bash
# Runs a command (usually corvane-browser) the way QtWebKit with NPAPI
# plug-ins runs reliably without a screen: under Xvfb (1024x768, 24 bits),
# with a private HOME whose XDG folders and TMPDIR live inside it, GSettings
# in memory, and neither the desktop's platform theme nor its desktop name
# (with the GTK 3 theme loaded, any plug-in brings the browser down).
#
# usage: run-headless.sh [options] [--] COMMAND [ARGS...]
#   --home DIR          use DIR as the private HOME and keep it afterwards
#                       (DIR must be missing or empty); default: a temporary
#                       folder, removed afterwards
#   --install FILE      copy FILE into $HOME/plugins (a plug-in and the
#                       programs that sit beside it); QTWEBKIT_PLUGIN_PATH
#                       then points there, MOZ_PLUGIN_PATH is cleared
#   --background CMD    start the shell command CMD in the private home
#                       before COMMAND, and stop it (TERM, then KILL) after;
#                       its standard output goes to standard error, so that
#                       standard output carries only COMMAND's
#   --wait-for PATH     before COMMAND, wait up to 20 s for PATH (relative
#                       to the private HOME) to exist, e.g. a file that a
#                       --background program writes when it is ready
#   --use-display       run on the current $DISPLAY instead of Xvfb (same
#                       private environment)
# The exit status is COMMAND's; 2 when the environment cannot be set up.
set -uo pipefail

die() { echo "run-headless: $*" >&2; exit 2; }

home=""
keep_home=0
installs=()
backgrounds=()
waits=()
use_display=0
while [ $# -gt 0 ]; do
  case "$1" in
    --home) [ $# -ge 2 ] || die "--home needs a folder"; home="$2"; keep_home=1; shift 2 ;;
    --install) [ $# -ge 2 ] || die "--install needs a file"; installs+=("$2"); shift 2 ;;
    --background) [ $# -ge 2 ] || die "--background needs a command"; backgrounds+=("$2"); shift 2 ;;
    --wait-for) [ $# -ge 2 ] || die "--wait-for needs a path"; waits+=("$2"); shift 2 ;;
    --use-display) use_display=1; shift ;;
    --) shift; break ;;
    -*) die "unknown option $1" ;;
    *) break ;;
  esac
done
[ $# -gt 0 ] || die "no command given"
if [ "$use_display" = 0 ]; then
  command -v xvfb-run >/dev/null || die "xvfb-run is missing (Debian: xvfb xauth)"
else
  [ -n "${DISPLAY:-}" ] || die "--use-display without a DISPLAY"
fi

if [ -n "$home" ]; then
  mkdir -p "$home" || die "cannot create $home"
  [ -z "$(ls -A "$home")" ] || die "$home is not empty"
  home="$(cd "$home" && pwd)"
else
  home="$(mktemp -d "${TMPDIR:-/tmp}/corvane-home.XXXXXX")" || die "cannot create a private home"
fi

bg_pids=()
cleanup() {
  local pid
  for pid in "${bg_pids[@]}"; do
    kill -TERM "$pid" 2>/dev/null
  done
  for pid in "${bg_pids[@]}"; do
    for _ in $(seq 50); do kill -0 "$pid" 2>/dev/null || break; sleep 0.1; done
    kill -KILL "$pid" 2>/dev/null
    wait "$pid" 2>/dev/null
  done
  if [ "$keep_home" = 0 ]; then rm -rf "$home"; fi
}
trap cleanup EXIT
trap 'exit 2' INT TERM

export HOME="$home"
export XDG_CONFIG_HOME="$home/.config"
export XDG_DATA_HOME="$home/.local/share"
export XDG_STATE_HOME="$home/.local/state"
export XDG_CACHE_HOME="$home/.cache"
export XDG_RUNTIME_DIR="$home/.runtime"
mkdir -p "$XDG_CONFIG_HOME" "$XDG_DATA_HOME" "$XDG_STATE_HOME" "$XDG_CACHE_HOME" "$XDG_RUNTIME_DIR"
chmod 700 "$XDG_RUNTIME_DIR"
# xvfb-run keeps its X authority file in a temporary folder, and leaves its
# Xvfb running when that folder vanishes under it: keep it in the home.
export TMPDIR="$home/.tmp"
mkdir -p "$TMPDIR"
export GSETTINGS_BACKEND=memory
unset QT_QPA_PLATFORMTHEME XDG_CURRENT_DESKTOP

if [ ${#installs[@]} -gt 0 ]; then
  mkdir -p "$home/plugins"
  for f in "${installs[@]}"; do
    cp -p "$f" "$home/plugins/" || die "cannot install $f"
  done
  export QTWEBKIT_PLUGIN_PATH="$home/plugins"
  unset MOZ_PLUGIN_PATH
fi

for cmd in "${backgrounds[@]}"; do
  (cd "$home" && exec /bin/sh -c "$cmd" >&2) &
  bg_pids+=($!)
done
for w in "${waits[@]}"; do
  for _ in $(seq 200); do [ -e "$home/$w" ] && break; sleep 0.1; done
  [ -e "$home/$w" ] || die "$w did not appear in the private home"
done

if [ "$use_display" = 1 ]; then
  "$@"
  exit $?
fi

# Parallel xvfb-run -a calls can pick the same display number, and then one
# Xvfb fails to start; xvfb-run may also fail while cleaning up after the
# command. So the command's own status is written to a file: no file means
# the command never ran (tried again), a file gives the status to return.
status_file="$home/.command-status"
for attempt in 1 2 3 4 5; do
  rm -f "$status_file"
  xvfb-run -a -s "-screen 0 1024x768x24" /bin/sh -c '"$@"; echo $? > "$0"' "$status_file" "$@"
  [ -s "$status_file" ] && break
  echo "run-headless: Xvfb did not start (attempt $attempt), trying again" >&2
  sleep 0.$((RANDOM % 9 + 1))
done
[ -s "$status_file" ] || exit 2
status=$(cat "$status_file")
rm -f "$status_file"
exit "$status"
