#!/usr/bin/env bash
# Builds the main program, umonat-sim, and runs it on its bundled default scenario (the tour in
# examples/tour.scn). Arguments go to umonat-sim: `scripts/run.sh -i` starts an interactive
# session, `scripts/run.sh FILE...` runs scenario files, `scripts/run.sh < FILE` reads one.
# Installs the missing Debian packages the simulator needs first (not those of the tests).
# Everything but umonat-sim's own output goes to standard error, so that
# `scripts/run.sh x.scn > out` holds the transcript alone.
#
# Environment (all optional): UMONAT_BUILD_DIR (default: build), CXX (default: g++),
# UMONAT_JOBS (default: 2).
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
umonat_install_deps run >&2

build=${UMONAT_BUILD_DIR:-build}
# Neither the tests nor the benchmarks: their packages are not needed to run the simulator.
cmake -S . -B "$build" -G Ninja -DCMAKE_CXX_COMPILER="${CXX:-g++}" -DUMONAT_BUILD_TESTS=OFF \
  -DUMONAT_BUILD_BENCH=OFF >/dev/null
cmake --build "$build" -j "${UMONAT_JOBS:-2}" --target umonat-sim >&2
exec "$build/sim/umonat-sim" "$@"
