#!/bin/sh
# make_deb.sh INSTALLATION quorvane_VERSION_ARCHITECTURE.deb
# Packs a fresh installation as a Debian package. It stands in /usr/lib/quorvane, with the command
# quorvane, its menu entry and the manual pages where Debian has them. The same files give the same
# bytes. KVO_MAINTAINER is whoever distributes it: "NAME <ADDRESS>".
set -eu
here=$(dirname "$(readlink -f "$0")")
installation=$(readlink -f "$1")
package=$(readlink -f "$2")
maintainer=${KVO_MAINTAINER:-the Quorvane developers <developers@quorvane.invalid>}
version=$(basename "$package" | cut -d _ -f 2)

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
root=$scratch/root
home=$root/usr/lib/quorvane
share=$root/usr/share
doc=$share/doc/quorvane
mkdir -p "$home" "$doc" "$root/usr/bin" "$root/DEBIAN" "$scratch/debian"

tar -C "$installation" --exclude=./etc/linux64.ini --exclude=./etc/kvo_site.txt --exclude=./update \
  --exclude=./LICENSE -cf - . | tar -C "$home" -xf -
for folder in applications icons man metainfo; do
  mv "$home/share/$folder" "$share/$folder"
done
for size in 48 128; do
  icons=$share/icons/hicolor/${size}x$size/apps
  mkdir -p "$icons"
  rsvg-convert -w "$size" -h "$size" "$share/icons/hicolor/scalable/apps/quorvane.svg" \
    -o "$icons/quorvane.png"
done
strip --remove-section=.comment "$home"/bin/linux64/*
gzip -n9 "$share"/man/man1/*.1
ln -s ../lib/quorvane/bin/quorvane "$root/usr/bin/quorvane"

# license_text FILE FIRST_WORD: its paragraphs from that word on, as the copyright file wants them.
license_text() {
  sed -n "/^$2/,\$p" "$1" | sed -e 's/^$/./' -e 's/^/ /'
}
{
  cat "$here/debian/copyright"
  printf '\nLicense: Expat\n'
  license_text "$installation/LICENSE" Permission
  printf '\nLicense: BSD-3-clause\n'
  license_text "$installation/share/mricron-data.txt" Redistribution
} >"$doc/copyright"

time=${SOURCE_DATE_EPOCH:-$(find "$installation" -type f -printf '%Ts\n' | sort -n | tail -n 1)}
export SOURCE_DATE_EPOCH="$time"
gzip -n9 >"$doc/changelog.gz" <<END
quorvane ($version) stable; urgency=medium

  * Version $version.

 -- $maintainer  $(LC_ALL=C date -u -R -d "@$time")
END

printf 'Source: quorvane\n\nPackage: quorvane\nArchitecture: any\n' >"$scratch/debian/control"
libraries=$(cd "$scratch" && dpkg-shlibdeps -O "$home"/bin/linux64/* 2>"$scratch/shlibdeps.log") ||
  { cat "$scratch/shlibdeps.log" >&2; exit 1; }
site=$(sed -n 's,.*<url type="homepage">\(.*\)</url>.*,\1,p' "$share"/metainfo/*.xml)
chmod -R u+w,go+rX,go-w "$root"
sed -e "s|@VERSION@|$version|" -e "s|@ARCHITECTURE@|$(dpkg --print-architecture)|" \
  -e "s|@MAINTAINER@|$maintainer|" -e "s|@SITE@|$site|" \
  -e "s|@LIBRARIES@|${libraries#shlibs:Depends=}|" \
  -e "s|@SIZE@|$(du -sk "$root/usr" | cut -f 1)|" "$here/debian/control" >"$root/DEBIAN/control"
(cd "$root" && find usr -type f -print0 | LC_ALL=C sort -z | xargs -0 md5sum) >"$root/DEBIAN/md5sums"
find "$root" -exec touch -h -d "@$time" {} +
dpkg-deb --root-owner-group --build "$root" "$package.part" >"$scratch/build.log"
mv "$package.part" "$package"
