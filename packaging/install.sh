#!/bin/sh
# Installs Quorvane for one user, without root. See usage() below.
set -eu

usage() {
  cat <<END
Usage: ./install.sh [FOLDER]
       ./install.sh --uninstall [FOLDER]

Copies Quorvane into FOLDER (default: ~/quorvane) and adds it to the menu, with the command
kvo_gui in ~/.local/bin and its manual page. A FOLDER that holds Quorvane is brought up to date; its
settings, and files that you have changed or added, stay.

Where the archive has been unpacked, or to where an installation has been moved, ./install.sh .
adds that very folder to the menu.

--uninstall removes Quorvane from FOLDER (default: the folder of this script) and from the menu.
Files that you have changed or added stay.
END
}

die() {
  printf 'install.sh: %s\n' "$*" >&2
  exit 1
}

say() {
  printf '%s\n' "$*"
}

source=$(dirname "$(readlink -f "$0")")
data=${XDG_DATA_HOME:-$HOME/.local/share}
menu_entry=$data/applications/quorvane.desktop
icon=$data/icons/hicolor/scalable/apps/quorvane.svg
command_link=$HOME/.local/bin/kvo_gui
manual_page=$HOME/.local/share/man/man1/kvo_gui.1

sum_of_file() {
  sha256sum <"$1" | cut -d ' ' -f 1
}

# listed_sum MANIFEST PATH: the checksum that the file had when it was installed.
listed_sum() {
  [ ! -f "$1" ] || awk -v path="$2" 'substr($0, 67) == path {print $1}' "$1"
}

# Takes the file's name only when it is whole.
copy_file() {
  mkdir -p "$(dirname "$2")"
  cp "$1" "$2.part"
  chmod "$(stat -c %a "$1")" "$2.part"
  mv -f "$2.part" "$2"
}

# install_file FOLDER SUM PATH: a file that the user has changed stays, the new one beside it.
install_file() {
  target=$1/$3
  if [ -f "$target" ]; then
    present=$(sum_of_file "$target")
    if [ "$present" != "$2" ] && [ "$present" != "$(listed_sum "$1/MANIFEST" "$3")" ]; then
      say "You have changed '$target': it stays, the new one is '$target.new'."
      target=$target.new
    fi
  fi
  copy_file "$source/$3" "$target"
}

install_files() {
  while read -r sum path; do
    install_file "$1" "$sum" "$path"
  done <"$source/MANIFEST"
}

# Removes the files of an earlier version that this one does not have any more.
remove_old_files() {
  while read -r sum path; do
    if [ -z "$(listed_sum "$source/MANIFEST" "$path")" ] && [ -f "$1/$path" ] &&
      [ "$(sum_of_file "$1/$path")" = "$sum" ]; then
      rm "$1/$path"
    fi
  done <"$1/MANIFEST"
}

new_installation() {
  part=$1.part
  rm -rf "$part"
  mkdir -p "$part"
  trap 'rm -rf "$part"' EXIT
  install_files "$part"
  copy_file "$source/MANIFEST" "$part/MANIFEST"
  [ ! -d "$1" ] || rmdir "$1"
  mv "$part" "$1"
  trap - EXIT
}

upgrade() {
  install_files "$1"
  remove_old_files "$1"
  copy_file "$source/MANIFEST" "$1/MANIFEST"
}

# A menu entry quotes twice: for the words of the command line, then for its own values.
menu_command() {
  printf '"%s"' "$(printf '%s' "$1/bin/linux64/kvo_gui" |
    sed -e 's/[\\"`$]/\\&/g' -e 's/\\/\\\\/g')"
}

# The menu entry's line that starts the installation of a folder.
menu_line() {
  printf 'Exec=%s' "$(menu_command "$1")"
}

add_to_menu() {
  mkdir -p "$(dirname "$menu_entry")" "$(dirname "$command_link")"
  menu_line=$(menu_line "$1") awk '/^Exec=/ {print ENVIRON["menu_line"]; next} {print}' \
    "$1/share/applications/quorvane.desktop" >"$menu_entry.part"
  mv -f "$menu_entry.part" "$menu_entry"
  copy_file "$1/share/icons/hicolor/scalable/apps/quorvane.svg" "$icon"
  copy_file "$1/share/man/man1/kvo_gui.1" "$manual_page"
  if [ -e "$command_link" ] && [ ! -L "$command_link" ]; then
    say "'$command_link' is a file of yours: it stays, and the command kvo_gui is not set up."
  else
    ln -sfn "$1/bin/linux64/kvo_gui" "$command_link"
  fi
  refresh_menu
}

refresh_menu() {
  if command -v update-desktop-database >/dev/null; then
    update-desktop-database -q "$(dirname "$menu_entry")" || true
  fi
}

# The menu may belong to another installation meanwhile.
remove_from_menu() {
  if [ -f "$menu_entry" ] && grep -qxF "$(menu_line "$1")" "$menu_entry"; then
    rm -f "$menu_entry" "$icon" "$manual_page"
    refresh_menu
  fi
  if [ "$(readlink "$command_link" || true)" = "$1/bin/linux64/kvo_gui" ]; then
    rm "$command_link"
  fi
}

# Says which packages the system lacks; the program is installed all the same.
check_packages() {
  if ldd "$1/bin/linux64/kvo_gui" | grep -q 'not found' || ! command -v wget >/dev/null ||
    ! command -v xdg-open >/dev/null; then
    say "Packages are missing that Quorvane needs. On Debian 12, as root:"
    sed -n '/^ *apt-get install /p' "$1/README.txt"
  fi
}

# whole_path FOLDER: its absolute path, whether it exists or not.
whole_path() {
  readlink -m -- "$1"
}

install() {
  [ -f "$source/MANIFEST" ] || die "'$source/MANIFEST' is missing: please unpack the archive again"
  folder=$(whole_path "$1")
  case $folder in
    *[[:cntrl:]=%]*) die "a menu entry cannot hold the folder name '$folder'" ;;
  esac
  if [ "$folder" != "$source" ]; then
    (cd "$source" && sha256sum --quiet -c MANIFEST) ||
      die "files are missing or damaged: please unpack the archive again"
    if [ -f "$folder/MANIFEST" ] && [ -f "$folder/bin/linux64/kvo_gui" ]; then
      upgrade "$folder"
    elif [ ! -e "$folder" ] || { [ -d "$folder" ] && [ -z "$(ls -A "$folder")" ]; }; then
      new_installation "$folder"
    else
      die "'$folder' holds other files: please name a new folder"
    fi
  fi
  add_to_menu "$folder"
  say "Quorvane is installed in '$folder'. It is in the menu, and the command is kvo_gui."
  say "To remove it: '$folder/install.sh' --uninstall"
  check_packages "$folder"
}

uninstall() {
  folder=$(whole_path "$1")
  [ -f "$folder/MANIFEST" ] || die "'$folder' holds no installation of Quorvane"
  remove_from_menu "$folder"
  while read -r sum path; do
    if [ -f "$folder/$path" ] && [ "$(sum_of_file "$folder/$path")" = "$sum" ]; then
      rm "$folder/$path"
    fi
  done <"$folder/MANIFEST"
  rm -f "$folder/etc/linux64.ini" "$folder/MANIFEST"
  find "$folder" -depth -type d -empty -delete
  if [ -d "$folder" ]; then
    say "Quorvane is removed. Your own files stay in '$folder':"
    find "$folder" -type f
  else
    say "Quorvane is removed."
  fi
}

main() {
  case ${1:-} in
    -h | --help) usage ;;
    --uninstall) uninstall "${2:-$source}" ;;
    -*) usage >&2; exit 2 ;;
    *) install "${1:-$HOME/quorvane}" ;;
  esac
}

main "$@"
exit
