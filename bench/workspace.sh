#!/bin/sh
# Usage: workspace.sh BUILD_FOLDER [INSTALLATION]
exec "$1/bench/workspace_bench"
