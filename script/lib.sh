# What the scripts share; to be sourced. Leaves the project's folder as the current folder.

set -euo pipefail
cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.."
root=$PWD

as_root() {
  if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

# Installs the packages of the given sections of script/packages.txt that are missing.
install_packages() {
  local wanted missing=() package
  wanted=$(awk -v sections=" $* " '/^\[/ {on = index(sections, " " substr($0, 2, length($0) - 2) " ")} /^[^#[]/ && on {print $1}' script/packages.txt)
  for package in $wanted; do
    dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return
  echo "Installing: ${missing[*]}"
  as_root apt-get update -q
  as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "${missing[@]}"
}

# build PRESET [TARGET...]
build() {
  local preset=$1
  shift
  cmake --preset "$preset" >"build/$preset.configure.log" 2>&1 || { cat "build/$preset.configure.log"; return 1; }
  cmake --build "build/$preset" ${*:+--target "$@"}
}

mkdir -p build
