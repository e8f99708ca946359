#!/bin/bash
# check_deb.sh PACKAGE.deb BASE, as root: looks the package over with lintian, then installs it in a
# copy of BASE, a minimal system, with nothing but what it depends on, lets two users, root and some
# in difficulties start it on a display of this machine, and removes it, which must leave nothing.
set -euo pipefail
package=$(readlink -f "$1")
base=$2
begin=$SECONDS
scratch=$(mktemp -d)
system=$scratch/system
server=

fail() {
  echo "check_deb.sh: $*" >&2
  exit 1
}

step() {
  echo "$((SECONDS - begin)) s: $*"
}

clean_up() {
  [ -z "$server" ] || kill "$server" 2>/dev/null || true
  # All that the checks mount is below the system.
  { mount | awk -v top="$system/" 'index($3, top) == 1 {print $3}' | sort -r |
    xargs -r -d '\n' umount -l; } || true
  rm -rf --one-file-system "$scratch"
}
trap clean_up EXIT

inside() {
  chroot "$system" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C DEBIAN_FRONTEND=noninteractive "$@"
}

# as NUMBER VARIABLE=VALUE...: starts quorvane as that user, on the display.
as() {
  inside setpriv --reuid "$1" --regid "$1" --clear-groups env DISPLAY="$display" "${@:2}" quorvane
}

# Everything that is there but the homes, the records of what apt and dpkg did, and caches.
contents() {
  (cd "$system" && find . -xdev \( -path ./home -o -path ./proc -o -path ./tmp -o -path ./var/log \
    -o -path ./var/cache -o -path ./var/lib/apt -o -path ./var/lib/dpkg \) -prune \
    -o -printf '%p %y %s %l\n' | LC_ALL=C sort)
}

titles() {
  DISPLAY=$display xdotool search --onlyvisible --name '^KVO v' 2>/dev/null | while read -r window; do
    DISPLAY=$display xdotool getwindowname "$window"
  done | LC_ALL=C sort
}

make_system() {
  cp -a "$base" "$system"
  mount -t proc proc "$system/proc"
  cp "$package" "$system/quorvane.deb"
  mkdir -p "$system/tmp/.X11-unix"
  mount --bind /tmp/.X11-unix "$system/tmp/.X11-unix"
  inside apt-get update -q >"$scratch/log"
}

install_package() {
  inside apt-get install -y -q --no-install-recommends /quorvane.deb >>"$scratch/log" 2>&1 ||
    { tail -n 20 "$scratch/log"; fail "the package cannot be installed"; }
}

purge_package() {
  inside apt-get purge -y -q quorvane >>"$scratch/log" 2>&1
}

start_display() {
  exec 9<> <(:)
  Xvfb -displayfd 9 -screen 0 1280x900x24 -nolisten tcp -noreset -ac 2>/dev/null &
  server=$!
  read -r -u 9 display
  display=:$display
}

# wants_sentence SENTENCE COMMAND...: the command must fail with just that sentence.
wants_sentence() {
  local said
  ! said=$("${@:2}" 2>&1 </dev/null) || fail "nothing was wrong: $*"
  [[ $said == "quorvane: "*"$1"* && $(wc -l <<<"$said") -eq 1 ]] || fail "'$1' was to be said, not '$said'"
}

use_package() {
  local home expected i users=() ids=(2001 2002 0)
  local homes=("/home/a" "/home/it's \"my\" \$HOME" "/home/root")
  mkdir -p "$system/home/full" "$system/home/readonly"
  for i in "${!ids[@]}"; do
    install -d -o "${ids[i]}" "$system${homes[i]}"
    as "${ids[i]}" HOME="${homes[i]}" 2>"$scratch/said$i" &
    users+=($!)
  done
  expected=$(printf 'KVO v4.31 - %s/.local/share/quorvane/example\n' "${homes[@]}" | LC_ALL=C sort)
  for ((i = 0; i < 300; ++i)); do
    [ "$(titles)" != "$expected" ] || break
    sleep 0.1
  done
  [ "$(titles)" = "$expected" ] || fail "the windows are '$(titles)'; $(cat "$scratch"/said*)"
  for home in "${homes[@]}"; do
    site=$(cat "$system$home/.local/share/quorvane/etc/kvo_site.txt")
    inside python3 -c 'import sys, urllib.request; urllib.request.urlopen(sys.argv[1])' "${site}manual/"
  done
  step "two users and root, all at once, have their windows and help pages"

  wants_sentence "You have no home folder." as 2003
  wants_sentence "cannot be set up: No such file or directory." as 2003 HOME=/proc/none
  wants_sentence "cannot be set up: Permission denied." as 2003 HOME=/root
  wants_sentence "Your settings cannot be kept" as 2003 HOME=/home/a
  mount -t tmpfs -o size=4k,nr_inodes=8,mode=1777 full "$system/home/full"
  wants_sentence "cannot be set up: No space left on device." as 2003 HOME=/home/full
  mount --bind "$system/home/readonly" "$system/home/readonly"
  mount -o remount,bind,ro "$system/home/readonly"
  wants_sentence "cannot be set up: Read-only file system." as 2003 HOME=/home/readonly
  mount --bind "$system/home/a" "$system/home/a"
  mount -o remount,bind,ro "$system/home/a"
  wants_sentence "Your settings cannot be kept" as 2001 HOME=/home/a
  umount "$system/home/a"
  step "users without a usable home are told so"

  kill "$server"
  wait "${users[@]}" || true
  server=
  [ -z "$(find "$system/home" -name kvo_site.txt)" ] || fail "an address of help pages was left behind"
}

if ! lintian --fail-on error,warning "$package" 2>/dev/null; then fail "lintian has complaints"; fi
step "lintian has no complaints"
make_system
step "a minimal system is there"
install_package
step "the package is installed"
for page in quorvane kvo_gui kvo_parse kvo_core kvo_edit imgcalc; do
  [ -f "$system/usr/share/man/man1/$page.1.gz" ] || fail "there is no manual page of $page"
done
purge_package
contents >"$scratch/before"
install_package
start_display
use_package
purge_package
contents >"$scratch/after"
diff "$scratch/before" "$scratch/after" || fail "the removed package has left something behind"
[ -z "$(find "$system" -xdev -path "$system/home" -prune -o -path "$system/quorvane.deb" -prune \
  -o \( -name '*quorvane*' -o -name '*kvo*' \) -print)" ] || fail "files of the package are left"
step "the package is removed, and nothing is left"
