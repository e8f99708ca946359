#!/bin/sh
# Usage: startup.sh BUILD_FOLDER INSTALLATION
exec "$(dirname "$0")/own_display" /usr/bin/python3 "$(dirname "$0")/startup_bench.py" "$2"
