#!/bin/sh
# Usage: editor.sh BUILD_FOLDER [INSTALLATION]
# With the installation's editor (and so its look) where there is one.
exec "$(dirname "$0")/own_display" "$1/bench/editor_bench" ${2:+"$2/bin/linux64/kvo_edit"}
