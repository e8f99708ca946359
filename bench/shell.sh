#!/bin/sh
# Usage: shell.sh BUILD_FOLDER [INSTALLATION]
exec "$1/bench/shell_bench"
