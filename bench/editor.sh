#!/bin/sh
# Usage: editor.sh BUILD_FOLDER [INSTALLATION]
# On a display of its own, with the installation's editor (and so its look) where there is one.
set -e
folder=$(mktemp -d)
trap 'kill $server $manager 2>/dev/null; rm -rf "$folder"' EXIT
trap 'exit 1' INT TERM
server= manager=
mkfifo "$folder/display"
Xvfb -displayfd 3 -screen 0 1280x1024x24 -nolisten tcp 3>"$folder/display" 2>/dev/null &
server=$!
read -r number <"$folder/display"
export DISPLAY=":$number"
openbox --sm-disable 2>/dev/null &
manager=$!
sleep 1
"$1/bench/editor_bench" ${2:+"$2/bin/linux64/kvo_edit"}
