#!/usr/bin/env bash
# Plays the user beside the browser for an end-to-end page (with-driver.sh
# starts it on the browser's display, in the private home): it answers
# panels with real key presses (xdotool), offers drags (xdnd-owner) and
# clicks. The page prints "DRIVE: ID|COMMAND|ARG..." (driver-page.js); the
# driver reads those lines from $E2E_CONSOLE in order and writes its answer,
# "ok [VALUE]" or "failed REASON", to $HOME/.e2e-driver/ID. "~/" paths are
# in the private home. TITLE is a window's exact title; waits are bounded.
#   hello | choose TITLE PATH | choose-in TITLE FOLDER N (its first N entries)
#   save TITLE PATH | cancel TITLE (Escape) | dismiss TITLE (Return)
#   shown TITLE [MS] | gone TITLE [MS] | absent TITLE MS
#   offer PATH... (text/uri-list) | offer-incr PATH... (the same in pieces: INCR)
#   offer-silent PATH... (a source that never answers)
#   offer-text TEXT (UTF8_STRING) | offer-stop
#   owner ("ok cleared" once the drag's selection was cleared within 2 s)
#   click X Y (in the browser's window)
# make_files below lays out the test files under ~/e2e. Exit status 0 when
# every action succeeded.
set -uo pipefail

console="${E2E_CONSOLE:?E2E_CONSOLE is not set}"
xdnd_owner="${E2E_XDND_OWNER:-}"
answers="$HOME/.e2e-driver"
failures=0
owner_pid=""
owner_out="$answers/.owner-output"
tail_pid=""

log() { printf 'driver: %s\n' "$*"; }
now_ms() { date +%s%3N; }

expand() {
  case "$1" in
    "~") printf '%s' "$HOME" ;;
    "~/"*) printf '%s/%s' "$HOME" "${1#\~/}" ;;
    *) printf '%s' "$1" ;;
  esac
}

make_files() {
  local e="$HOME/e2e" f
  mkdir -p "$e/files" "$e/other" "$e/odd" "$e/folder" "$e/out" "$e/drop/dir"
  printf 'alpha\n' > "$e/files/alpha.txt"
  printf 'beta!\n' > "$e/files/beta.txt"
  printf 'secret\n' > "$e/other/secret.txt"
  printf 'odd\n' > "$e/odd/colon:name.txt"
  printf 'inner\n' > "$e/folder/inner.txt"
  for f in a b c d e f g h; do printf 'drop %s\n' "$f" > "$e/drop/$f.txt"; done
  # Fixed times, so that the pages can print the dates the plug-in reports.
  find "$e" -exec touch -d "2021-03-04 05:06:07 UTC" {} +
}

xdo() { timeout 10 xdotool "$@" 2>/dev/null; }

# The visible windows titled exactly $1, one id per line.
find_windows() {
  local pattern
  pattern="$(printf '%s' "$1" | sed 's/[][\\.*^$(){}+?|]/\\&/g')"
  xdo search --onlyvisible --name "^${pattern}\$"
}
find_window() { find_windows "$1" | head -n 1; }

# Runs COMMAND every 0.1 s until it succeeds, for at most $1 ms.
retry() {
  local deadline=$(( $(now_ms) + $1 ))
  shift
  until "$@"; do
    [ "$(now_ms)" -lt "$deadline" ] || return 1
    sleep 0.1
  done
}
window_shows() { window_id="$(find_window "$1")"; [ -n "$window_id" ]; }
window_gone() { ! window_shows "$1"; }
# Waits up to $2 ms (default 20000) for window $1; prints its id.
wait_window() { retry "${2:-20000}" window_shows "$1" && printf '%s' "$window_id"; }

# Waits up to $2 ms for the panel $panel_id titled $1 to go. The page may
# open its next panel of the same title at once, and the X server gives the
# next program the same window ids: the panel is its process's window.
panel_left() {
  ! find_windows "$1" | grep -qx "$panel_id" || [ "$(xdo getwindowpid "$panel_id")" != "$panel_pid" ]
}
panel_gone() { retry "${2:-10000}" panel_left "$1"; }

# Gives window $1 the keyboard: there is no window manager to do it.
focus() {
  local attempt
  for attempt in $(seq 50); do
    xdo windowfocus "$1"
    if [ "$(xdo getwindowfocus)" = "$1" ]; then
      sleep 0.3  # let GTK settle before the first key
      return 0
    fi
    sleep 0.1
  done
  return 1
}

keys() { xdo key --delay 60 "$@"; }
type_text() { xdo type --delay 15 "$1"; }

# Presses Return until panel $1 has gone: the first press may only take the
# location entry's completion. Keys go to whatever has the focus (or lies
# under the pointer), so each press first makes sure the panel is still
# there and has the focus.
accept_with_return() {
  local attempt
  for attempt in 1 2 3 4 5; do
    sleep 0.4
    panel_gone "$1" 0 && return 0
    if [ "$(xdo getwindowfocus)" != "$panel_id" ] && ! focus "$panel_id"; then
      panel_gone "$1" 0
      return
    fi
    keys Return
    panel_gone "$1" 2000 && return 0
  done
  return 1
}

stop_owner() {
  if [ -n "$owner_pid" ]; then
    kill -TERM "$owner_pid" 2>/dev/null
    wait "$owner_pid" 2>/dev/null
    owner_pid=""
  fi
}

# Starts xdnd-owner with the given options; waits for its "ready".
start_owner() {
  [ -n "$xdnd_owner" ] || { reply="E2E_XDND_OWNER is not set"; return 1; }
  stop_owner
  : > "$owner_out"
  "$xdnd_owner" --lifetime-ms 120000 "$@" > "$owner_out" 2>&1 &
  owner_pid=$!
  retry 10000 owner_started && grep -qx ready "$owner_out" ||
    { reply="xdnd-owner did not get ready: $(tr '\n' ' ' < "$owner_out")"; return 1; }
}
owner_started() { grep -qx ready "$owner_out" || ! kill -0 "$owner_pid" 2>/dev/null; }

# Waits for panel $1 and focuses it; its window and process go to
# $panel_id and $panel_pid.
panel() {
  panel_id="$(wait_window "$1")" || { reply="no window \"$1\""; return 1; }
  panel_pid="$(xdo getwindowpid "$panel_id")"
  focus "$panel_id" || { reply="could not focus \"$1\""; return 1; }
}

# Runs one command in this shell (the drag source must outlive it); leaves
# the answer's value, or the reason for failing, in $reply.
perform() {
  local command="$1" path n list id how
  shift
  reply=""
  case "$command" in
    hello) ;;
    choose|choose-in|save)
      panel "$1" || return 1
      if [ "$command" = save ]; then keys ctrl+a; else keys ctrl+l; fi
      if [ "$command" = choose-in ]; then
        # Into the folder, where its first entry is selected; add the next.
        type_text "$(expand "$2")/"; sleep 0.4; keys Return; sleep 0.8
        for ((n = 1; n < $3; n++)); do keys shift+Down; done
      else
        type_text "$(expand "$2")"
      fi
      accept_with_return "$1" || { reply="\"$1\" did not close"; return 1; } ;;
    cancel|dismiss)
      panel "$1" || return 1
      if [ "$command" = cancel ]; then keys Escape; else keys Return; fi
      panel_gone "$1" || { reply="\"$1\" did not close"; return 1; } ;;
    shown)
      wait_window "$1" "${2:-20000}" > /dev/null || { reply="no window \"$1\""; return 1; } ;;
    gone)
      retry "${2:-10000}" window_gone "$1" || { reply="\"$1\" still shows"; return 1; } ;;
    absent)
      if wait_window "$1" "${2:-2000}" > /dev/null; then reply="a window \"$1\" showed"; return 1; fi ;;
    offer|offer-incr|offer-silent)
      list=""
      for path in "$@"; do list+="file://$(expand "$path")"$'\r\n'; done
      how=()
      [ "$command" = offer-incr ] && how=(--incr-chunk 8)
      [ "$command" = offer-silent ] && how=(--silent)
      start_owner "${how[@]}" --uri-list "$list" ;;
    offer-text)
      start_owner --text "$(expand "$1")" ;;
    owner)
      [ -n "$owner_pid" ] || { reply="no drag source"; return 1; }
      if retry 2000 grep -qx cleared "$owner_out"; then reply=cleared; else reply=owning; fi ;;
    offer-stop) stop_owner ;;
    click)
      id="$(wait_window corvane-browser 5000)" || { reply="no browser window"; return 1; }
      xdo mousemove --window "$id" "$1" "$2" click 1 || { reply="xdotool could not click"; return 1; } ;;
    *) reply="unknown command $command"; return 1 ;;
  esac
}

answer() {
  printf '%s\n' "$2" > "$answers/.$1.tmp" && mv "$answers/.$1.tmp" "$answers/$1"
}

finish() {
  stop_owner
  [ -z "$tail_pid" ] || kill "$tail_pid" 2>/dev/null
  log "done, $failures failed"
  exit $((failures > 0))
}
trap finish TERM INT

mkdir -p "$answers"
make_files
log "ready on display ${DISPLAY:-?}"

exec 3< <(exec tail -n +1 -F "$console" 2>/dev/null)
tail_pid=$!
while IFS= read -r line <&3; do
  case "$line" in "DRIVE: "*) ;; *) continue ;; esac
  IFS='|' read -r -a fields <<< "${line#DRIVE: }"
  id="${fields[0]:-}"
  case "$id" in ''|*/*|.*) log "bad request: $line"; failures=$((failures + 1)); continue ;; esac
  log "$id: ${fields[*]:1}"
  if perform "${fields[@]:1}"; then
    result="ok${reply:+ $reply}"
  else
    failures=$((failures + 1)) result="failed ${reply:-no reason}"
  fi
  answer "$id" "$result"
  log "$id: $result"
done
finish
