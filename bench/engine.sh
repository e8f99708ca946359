#!/bin/sh
# Usage: engine.sh BUILD_FOLDER INSTALLATION
set -e
cmake --build "$1" --target engine_bench >/dev/null
# Debian's own Python is the one that has nibabel.
exec /usr/bin/python3 "$(dirname "$0")/engine_bench.py" "$1/bench/engine_bench" "$2"
