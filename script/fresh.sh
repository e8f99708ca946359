# shellcheck shell=bash
# A minimal Debian 12, made once by debootstrap with this machine's package source and copied by the
# checks that need a fresh machine; to be sourced after lib.sh. Needs root.

install_packages fresh
fresh=${KVO_FRESH_DIR:-/var/tmp/kvo-fresh}
base=$fresh/base

# Debian's own among this machine's sources of packages, whatever form they have.
copy_sources() {
  mkdir -p "$1/etc/apt/sources.list.d"
  rm -f "$1"/etc/apt/sources.list
  local file
  for file in /etc/apt/sources.list /etc/apt/sources.list.d/*; do
    [ -f "$file" ] && grep -qE '/debian(-security)?/*( |$)' "$file" && cp "$file" "$1/etc/apt/sources.list.d/"
  done
  cp -r /etc/apt/apt.conf.d/. "$1/etc/apt/apt.conf.d/" 2>/dev/null || true
  cp /etc/resolv.conf /etc/hosts "$1/etc/" 2>/dev/null || true
}

package_source() {
  { sed -n 's/^URIs: *//p' /etc/apt/sources.list.d/*.sources 2>/dev/null
    awk '$1 == "deb" {for (i = 2; i <= NF; ++i) if ($i ~ "://") print $i}' /etc/apt/sources.list \
      /etc/apt/sources.list.d/*.list 2>/dev/null; } | grep '/debian/*$' | head -n 1
}

make_base() {
  [ ! -f "$fresh/base.done" ] || return 0
  rm -rf "$base"
  mkdir -p "$fresh"
  echo "Making a minimal Debian 12"
  debootstrap --variant=minbase bookworm "$base" "$(package_source)" >"$fresh/debootstrap.log" 2>&1 ||
    { tail -n 20 "$fresh/debootstrap.log" >&2; die "debootstrap failed"; }
  copy_sources "$base"
  touch "$fresh/base.done"
}
