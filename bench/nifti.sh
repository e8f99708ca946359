#!/bin/sh
# Usage: nifti.sh BUILD_FOLDER [INSTALLATION]
exec "$1/bench/nifti_bench"
