#!/usr/bin/env bash
# The first command to run: installs what the build needs (scripts/setup.sh),
# builds the tool in Release into build/, runs every operation of the library
# on built-in sample images and prints where the gallery is. JOBS sets the
# build parallelism (default 2); DEMO_DIR the output folder (demo-out).
set -euo pipefail
cd "$(dirname "$0")/.."

JOBS=${JOBS:-2}
DEMO_DIR=${DEMO_DIR:-demo-out}

scripts/setup.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release
cmake --build build -j"$JOBS" --target rzimg

status=0
build/tools/rzimg demo "$DEMO_DIR" || status=$?
echo
echo "Open $(cd "$DEMO_DIR" && pwd)/index.html in a browser."
exit $status
