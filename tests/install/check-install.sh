#!/usr/bin/env bash
# Installs the plug-in for real, shows a page with it in corvane-browser,
# removes it and checks that nothing is left behind: per user (`make
# install`/`make uninstall`, never in the real home), and as the Debian
# package (apt-get install, the page with the plug-in from
# /usr/lib/mozilla/plugins, dpkg -r). The browser gets no private plug-in
# path and a private home, so the only copy it can find is the installed
# one; the page chooses a file in the real panel, which works only when the
# plug-in finds corvane-dialog beside itself.
# usage: tests/install/check-install.sh  (after make build; needs root or
# sudo; runs are kept in build/install-check/). Do not run other pages at
# the same time: QtWebKit also scans the system plug-in folder.
set -uo pipefail

repo="$(cd "$(dirname "$0")/../.." && pwd)"
build="$repo/build"
out="$build/install-check"
here="$repo/tests/install"
package=corvane-web
plugin_dir=/usr/lib/mozilla/plugins
SUDO=""
[ "$(id -u)" = 0 ] || SUDO=sudo

failures=0
fail() { echo "check-install: FAILED: $*" >&2; failures=$((failures + 1)); }
die() { echo "check-install: $*" >&2; exit 2; }
step() { echo "=== check-install: $*"; }

for f in tools/corvane-browser/corvane-browser plugin/npapi/libcorvane-web.so tools/corvane-dialog/corvane-dialog; do
  [ -f "$build/$f" ] || die "$build/$f is missing (make build)"
done
# The plug-in's last resort for its panel program is the search path.
! command -v corvane-dialog >/dev/null || die "a corvane-dialog on PATH would hide where the plug-in looks"

# What the cleanup has to undo.
user_home=""
package_installed=0

# dpkg waits for no lock of its own; others may hold it for a while.
dpkg_remove() {
  for _ in $(seq 180); do
    $SUDO dpkg -r "$package" 2>"$out/dpkg-r.txt" && return 0
    grep -q lock "$out/dpkg-r.txt" || break
    sleep 5
  done
  cat "$out/dpkg-r.txt" >&2
  return 1
}

cleanup() {
  if [ "$package_installed" = 1 ]; then
    echo "check-install: removing the package left installed" >&2
    dpkg_remove >/dev/null || echo "check-install: could not remove $package" >&2
  fi
  if [ -n "$user_home" ] && [ -f "$build/install_manifest_user.txt" ]; then
    HOME="$user_home" make -C "$repo" --no-print-directory uninstall >/dev/null 2>&1
  fi
}
trap cleanup EXIT
trap 'exit 2' INT TERM

unset QTWEBKIT_PLUGIN_PATH MOZ_PLUGIN_PATH MOZILLA_HOME CORVANE_DIALOG_PROGRAM

# run_page NAME [run-page.sh options...]: the page, with the driver.
run_page() {
  local name="$1"
  shift
  "$repo/tests/e2e/run-page.sh" \
    --runner "$repo/tools/corvane-browser/run-headless.sh" \
    --browser "$build/tools/corvane-browser/corvane-browser" \
    --page "$here/installed.html" --expected "$here/installed.expected" \
    --out "$out/$name" --timeout-ms 90000 \
    --driver "exec '$repo/tests/e2e/driver.sh'" "$@"
}

# What make install puts under a home folder (files and links, sorted).
user_files() {
  (cd "$1" && find .mozilla/plugins .mozilla/native-messaging-hosts .config/chromium/NativeMessagingHosts \
    .local/libexec/corvane-web \( -type f -o -type l \) 2>/dev/null | LC_ALL=C sort)
}

expect_list() {  # what, expected (one per line), actual
  if [ "$2" != "$3" ]; then
    fail "$1:"
    diff <(printf '%s\n' "$2") <(printf '%s\n' "$3") | sed 's/^/  /' >&2
  fi
}

if [ -e "$plugin_dir/libcorvane-web.so" ] || dpkg-query -W "$package" >/dev/null 2>&1; then
  die "$package is installed already ($plugin_dir): remove it first, the check must see only its own copy"
fi
rm -rf "$out"
mkdir -p "$out" || die "cannot create $out"
real_home_before="$(user_files "$HOME")"

step "per user: make install, the page, make uninstall"
# The private home exists only once the runner made it, so make install
# runs there, as its first background command (with HOME set to it).
user_home="$out/user/home"
run_page user \
  --background "make -C '$repo' --no-print-directory install >.make-install.txt 2>&1 && touch .installed" \
  --wait-for .installed ||
  fail "the page with the plug-in in ~/.mozilla/plugins"
expect_list "make install: the plug-in, and the host for today's browsers" \
  ".config/chromium/NativeMessagingHosts/com.corvane.web_host.json
.local/libexec/corvane-web/corvane-dialog
.local/libexec/corvane-web/corvane-web-host
.mozilla/native-messaging-hosts/com.corvane.web_host.json
.mozilla/plugins/corvane-dialog
.mozilla/plugins/libcorvane-web.so" "$(user_files "$user_home")"
expect_list "make install changed the real home" "$real_home_before" "$(user_files "$HOME")"
HOME="$user_home" make -C "$repo" --no-print-directory uninstall || fail "make uninstall"
expect_list "left after make uninstall (with its manifests)" "" \
  "$(user_files "$user_home"; ls "$build"/install_manifest_{user,webext-host}.txt 2>/dev/null)"
user_home=""

step "the Debian package: make package, apt-get install, the page, dpkg -r"
rm -f "$build/${package}"_*.deb
make -C "$repo" --no-print-directory package >"$out/make-package.txt" 2>&1 || {
  cat "$out/make-package.txt" >&2
  die "make package failed"
}
debs=("$build/${package}"_*.deb)
if [ ${#debs[@]} != 1 ] || [ ! -f "${debs[0]}" ]; then die "make package made no single ${package}_*.deb"; fi
deb="${debs[0]}"
package_files="$plugin_dir/corvane-dialog
$plugin_dir/libcorvane-web.so
/usr/share/corvane-web/corvane-web.d.ts"
expect_list "the package's files" "$package_files" \
  "$(dpkg-deb --fsys-tarfile "$deb" | tar -t | grep -v '/$' | sed 's|^\.||' | LC_ALL=C sort)"
version="$(dpkg-deb -f "$deb" Version)"
depends="$(dpkg-deb -f "$deb" Depends)"
for lib in libc6 libglib2.0-0 libyajl2 libgtk-3-0; do
  [[ "$depends" == *"$lib"* ]] || fail "Depends lacks $lib (computed from the shared libraries): $depends"
done

# Folders that dpkg -r must take away again: those the package made.
made=()
for d in /usr/lib/mozilla /usr/lib/mozilla/plugins /usr/share/corvane-web; do
  [ -e "$d" ] || made+=("$d")
done

package_installed=1
$SUDO env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=900 install -y \
  --no-install-recommends "$deb" >"$out/apt-install.txt" 2>&1 || {
  cat "$out/apt-install.txt" >&2
  die "apt-get install of $deb failed"
}
run_page system || fail "the page with the plug-in in $plugin_dir"
shown="$(sed -n 's/^E2E: queryPluginVersion() -> //p' "$out/system/actual.txt" 2>/dev/null)"
[ "$shown" = "$version" ] || fail "the package's version $version is not the plug-in's ($shown)"

dpkg_remove || fail "dpkg -r $package"
package_installed=0
status="$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)"
[ -z "$status" ] || [ "$status" = not-installed ] || fail "dpkg still lists $package ($status)"
for f in $package_files "${made[@]}"; do [ ! -e "$f" ] || fail "left behind: $f"; done

if [ "$failures" != 0 ]; then
  echo "check-install: $failures check(s) failed; the runs are kept in $out" >&2
  exit 1
fi
echo "check-install: installs, the pages and the removals passed"
