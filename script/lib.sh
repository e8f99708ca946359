# shellcheck shell=bash
# What the scripts share; to be sourced. Leaves the project's folder as the current folder.

set -euo pipefail
cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.."
# shellcheck disable=SC2034 # for the scripts
root=$PWD

# die TEXT...: ends with one sentence.
die() {
  printf '%s: %s\n' "script/$(basename "$0")" "$*" >&2
  exit 1
}

as_root() {
  if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

# packages_of SECTION...: the packages that script/packages.txt lists in the sections.
packages_of() {
  awk -v sections=" $* " '
    /^\[/ {on = index(sections, " " substr($0, 2, length($0) - 2) " ")}
    /^[^#[]/ && on {print $1}' script/packages.txt | sort -u
}

# missing_packages SECTION...: those of them that are not installed.
missing_packages() {
  local package
  for package in $(packages_of "$@"); do
    [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || echo "$package"
  done
}

# Ends where packages can't be installed at all, before anything is begun.
check_system() {
  command -v apt-get >/dev/null && command -v dpkg-query >/dev/null ||
    die "this needs Debian 12 (bookworm): there is no apt-get here. On another distribution install" \
      "what script/packages.txt lists, then: cmake --preset product && cmake --build build/product"
  [ "$(id -u)" -eq 0 ] || command -v sudo >/dev/null ||
    die "packages are missing ($*): run this as root, or install sudo"
}

# Runs apt-get; what it says goes to build/packages.log, and to the screen when it fails.
run_apt() {
  as_root env DEBIAN_FRONTEND=noninteractive apt-get -q -o DPkg::Lock::Timeout=300 "$@" \
    >>build/packages.log 2>&1
}

# Installs the packages of the given sections of script/packages.txt that are missing.
install_packages() {
  local missing
  mapfile -t missing < <(missing_packages "$@")
  [ ${#missing[@]} -eq 0 ] && return
  check_system "${missing[@]}"
  echo "Installing ${#missing[@]} packages and what they need: ${missing[*]}"
  : >build/packages.log
  # An earlier run may have been interrupted.
  as_root dpkg --configure -a >>build/packages.log 2>&1 || true
  if ! run_apt update -o APT::Update::Error-Mode=any || ! run_apt install -y --no-install-recommends "${missing[@]}"; then
    tail -n 3 build/packages.log >&2
    die "the packages could not be installed (see above, and build/packages.log): check the network," \
      "the free space and /etc/apt/sources.list, then run this again"
  fi
  mapfile -t missing < <(missing_packages "$@")
  [ ${#missing[@]} -eq 0 ] || die "these packages are still missing: ${missing[*]}"
}

# build PRESET [TARGET...]: one line of progress; what the compiler says is shown when it fails.
build() {
  local preset=$1 log=build/$1.build.log targets=("${@:2}")
  # Begun anew where an older version, or an interrupted run, left what does not fit any more.
  cmake --preset "$preset" >"build/$preset.configure.log" 2>&1 ||
    cmake --fresh --preset "$preset" >"build/$preset.configure.log" 2>&1 ||
    { cat "build/$preset.configure.log" >&2; die "the build could not be configured (see above)"; }
  echo "Compiling ($preset)"
  # Two compilers more than cores, as Ninja has it, take a sixth longer.
  if ! cmake --build "build/$preset" -j "$(nproc)" ${targets:+--target "${targets[@]}"} 2>&1 | tee "$log" | show_progress; then
    ! grep -q 'No space left on device' "$log" ||
      die "the disk that holds '$root' is full: a build takes about 500 MB. Then run this again"
    grep -v '^\[' "$log" | tail -n 40 >&2
    die "the build failed (see above, and $log); run this again to go on with it"
  fi
}

# Shows of Ninja's lines how far it has come: on a terminal in place, elsewhere now and then.
show_progress() {
  if [ -t 1 ]; then
    awk '/^\[[0-9]+\/[0-9]+\]/ {printf "\r  %s   ", $1; fflush()} END {print ""}'
  else
    awk '/^\[[0-9]+\/[0-9]+\]/ {split(substr($1, 2), part, "[/\\]]"); share = int(10 * part[1] / part[2])
           if (share != last) {print "  " $1; fflush()} last = share}'
  fi
}

mkdir -p build 2>/dev/null && [ -w build ] || die "the folder '$root' cannot be written to"
