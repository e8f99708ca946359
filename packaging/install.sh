#!/bin/sh
# Installs Quorvane for one user, without root. See usage() below.
set -eu

usage() {
  cat <<END
Usage: ./install.sh [FOLDER]
       ./install.sh --uninstall [FOLDER]

Copies Quorvane into FOLDER (default: ~/quorvane) and adds it to the menu, with the command
quorvane in ~/.local/bin and the manual pages. A FOLDER that holds Quorvane is brought up to date; its
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
launcher=bin/quorvane
command_link=$HOME/.local/bin/quorvane
manual=$HOME/.local/share/man/man1

# paths_of MANIFEST...: the files that it lists; in front of each stands its checksum.
paths_of() {
  cut -c 67- "$@"
}

# Takes the file's name only when it is whole.
copy_file() {
  [ -d "${2%/*}" ] || mkdir -p "${2%/*}"
  cp --preserve=mode "$1" "$2.part"
  mv -f "$2.part" "$2"
}

new_installation() {
  part=$1.part
  rm -rf "$part"
  mkdir -p "$part"
  trap 'rm -rf "$part"' EXIT
  paths_of "$source/MANIFEST" | tar -C "$source" -cf "$part/tar" MANIFEST -T -
  tar -C "$part" --no-same-owner -xpf "$part/tar"
  rm "$part/tar"
  [ ! -d "$1" ] || rmdir "$1"
  mv "$part" "$1"
  trap - EXIT
}

# The checksums of what there is in a folder of the files that this version or the one there has.
present_sums() {
  paths_of "$source/MANIFEST" "$1/MANIFEST" | sort -u | (
    cd "$1"
    while read -r path; do
      [ ! -f "$path" ] || printf '%s\0' "$path"
    done | xargs -0 -r sha256sum
  )
}

# What an upgrade of a folder does to which file: "copy" the new one, put it "beside" one that the
# user has changed, or "remove" one of the earlier version that is not in this one.
upgrade_plan() {
  {
    sed 's/^/new /' "$source/MANIFEST"
    sed 's/^/old /' "$1/MANIFEST"
    present_sums "$1" | sed 's/^/has /'
  } | awk '{path = substr($0, 71); paths[path]; sum[$1, path] = $2}
    END {
      for (path in paths) {
        new = sum["new", path]; old = sum["old", path]; has = sum["has", path]
        if (has == new) continue
        if (new == "") {if (has == old) print "remove", path}
        else if (has == "" || has == old) print "copy", path
        else print "beside", path
      }
    }'
}

upgrade() {
  plan=$(upgrade_plan "$1")
  printf '%s\n' "$plan" | while read -r action path; do
    case $action in
      copy) copy_file "$source/$path" "$1/$path" ;;
      remove) rm "$1/$path" ;;
      beside)
        say "You have changed '$1/$path': it stays, the new one is '$1/$path.new'."
        copy_file "$source/$path" "$1/$path.new"
        ;;
    esac
  done
  copy_file "$source/MANIFEST" "$1/MANIFEST"
}

# A menu entry quotes twice: for the words of the command line, then for its own values.
menu_command() {
  printf '"%s"' "$(printf '%s' "$1/$launcher" |
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
  mkdir -p "$manual"
  cp "$1"/share/man/man1/* "$manual"
  if [ -e "$command_link" ] && [ ! -L "$command_link" ]; then
    say "'$command_link' is a file of yours: it stays, and the command quorvane is not set up."
  else
    ln -sfn "$1/$launcher" "$command_link"
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
    rm -f "$menu_entry" "$icon"
    for page in "$1"/share/man/man1/*; do
      printf '%s\0' "$manual/${page##*/}"
    done | xargs -0 rm -f
    refresh_menu
  fi
  if [ "$(readlink "$command_link" || true)" = "$1/$launcher" ]; then
    rm "$command_link"
  fi
}

# Says which packages the system lacks; the program is installed all the same.
check_packages() {
  if ldd "$1/bin/linux64/kvo_gui" | grep -q 'not found' || ! command -v wget >/dev/null ||
    ! command -v xdg-open >/dev/null || ! [ -x /usr/bin/python3 ]; then
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
  say "Quorvane is installed in '$folder'. It is in the menu, and the command is quorvane."
  say "To remove it: '$folder/install.sh' --uninstall"
  check_packages "$folder"
}

uninstall() {
  folder=$(whole_path "$1")
  [ -f "$folder/MANIFEST" ] || die "'$folder' holds no installation of Quorvane"
  remove_from_menu "$folder"
  (
    cd "$folder"
    LC_ALL=C sha256sum -c MANIFEST 2>/dev/null | sed -n 's/: OK$//p' | tr '\n' '\0' | xargs -0 -r rm
  )
  rm -f "$folder/etc/linux64.ini" "$folder/etc/kvo_site.txt" "$folder/MANIFEST"
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
