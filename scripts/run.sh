#!/usr/bin/env bash
# Builds the main program and runs it on its bundled default scenario.
# Installs missing Debian packages first.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
umonat_install_deps

build=${UMONAT_BUILD_DIR:-build}
cmake -S . -B "$build" -G Ninja -DCMAKE_CXX_COMPILER="${CXX:-g++}" -DUMONAT_BUILD_TESTS=OFF
cmake --build "$build" -j "${UMONAT_JOBS:-2}"
# The simulator is not part of the tree yet: only the library is built.
echo "Built the UmoNat plug-in ($build/UmoNat); the simulator umonat-sim is not available yet."
