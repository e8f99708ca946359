#!/bin/sh
# Usage: shell.sh BUILD_FOLDER [INSTALLATION]
exec "$(dirname "$0")/own_display" "$1/bench/shell_bench"
