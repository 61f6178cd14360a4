#!/usr/bin/env bash
# Builds the main program, umonat-sim, and runs it on its bundled default scenario (the tour in
# examples/tour.scn). Arguments go to umonat-sim: `scripts/run.sh -i` starts an interactive
# session, `scripts/run.sh FILE...` runs scenario files. Installs missing Debian packages first.
#
# Environment (all optional): UMONAT_BUILD_DIR (default: build), CXX (default: g++),
# UMONAT_JOBS (default: 2).
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
umonat_install_deps

build=${UMONAT_BUILD_DIR:-build}
cmake -S . -B "$build" -G Ninja -DCMAKE_CXX_COMPILER="${CXX:-g++}" -DUMONAT_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" -j "${UMONAT_JOBS:-2}" --target umonat-sim
exec "$build/sim/umonat-sim" "$@"
