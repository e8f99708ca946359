#!/bin/sh
# Usage: estimates.sh BUILD_FOLDER INSTALLATION
set -e
cmake --build "$1" --target estimates_bench >/dev/null
exec /usr/bin/python3 "$(dirname "$0")/estimates_bench.py" "$1/bench/estimates_bench" "$2"
