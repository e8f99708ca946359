#!/bin/sh
# make_archive.sh INSTALLATION ARCHIVE.tar.gz
# Packs a fresh installation, with install.sh and the list of its files, into an archive that holds
# one folder named like the archive. The same files give the same bytes.
set -eu
here=$(dirname "$(readlink -f "$0")")
installation=$1
archive=$2

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
name=$(basename "$archive" .tar.gz)
folder=$scratch/$name
mkdir "$folder"
tar -C "$installation" --exclude=./etc/linux64.ini --exclude=./etc/kvo_site.txt --exclude=./update -cf - . | tar -C "$folder" -xf -
cp "$here/install.sh" "$folder/install.sh"
chmod 755 "$folder/install.sh"
chmod -R u+w,go+rX,go-w "$folder"
(cd "$folder" && find . -type f ! -name MANIFEST -printf '%P\0' | LC_ALL=C sort -z |
  xargs -0 sha256sum) >"$scratch/MANIFEST"
mv "$scratch/MANIFEST" "$folder/MANIFEST"

# One time for all files, as copying changes times.
time=${SOURCE_DATE_EPOCH:-$(find "$installation" -type f -printf '%Ts\n' | sort -n | tail -n 1)}
tar -C "$scratch" --sort=name --owner=0 --group=0 --numeric-owner --mtime="@$time" -cf - "$name" |
  gzip -n9 >"$archive.part"
mv "$archive.part" "$archive"
