#!/usr/bin/env bash
# Re-records the expected transcripts of golden scenarios, on purpose, after a change of the
# system or the simulator: builds umonat-sim, runs each scenario and overwrites its .out file.
# Review the result with `git diff tests/scenarios` before committing it.
#
#   scripts/rerecord.sh            every scenario, and the built-in tour
#   scripts/rerecord.sh NAME...    tests/scenarios/NAME.scn ("tour": the built-in tour)
#
# Environment: UMONAT_BUILD_DIR (default: build), CXX (default: g++), UMONAT_JOBS (default: 2).
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
umonat_install_deps

build=${UMONAT_BUILD_DIR:-build}
if [ ! -f "$build/CMakeCache.txt" ]; then
  cmake -S . -B "$build" -G Ninja -DCMAKE_CXX_COMPILER="${CXX:-g++}"
fi
cmake --build "$build" -j "${UMONAT_JOBS:-2}" --target umonat-sim
sim="$build/sim/umonat-sim"

names=("$@")
if [ ${#names[@]} -eq 0 ]; then
  names=(tour)
  for scenario in tests/scenarios/*.scn; do names+=("$(basename "$scenario" .scn)"); done
fi
for name in "${names[@]}"; do
  if [ "$name" = tour ]; then
    tests/scenarios/run-scenario.sh --record "$sim" tests/scenarios/tour.out
  elif [ -f "tests/scenarios/$name.scn" ]; then
    tests/scenarios/run-scenario.sh --record "$sim" "tests/scenarios/$name.out" \
      "tests/scenarios/$name.scn"
  else
    echo "no scenario tests/scenarios/$name.scn" >&2
    exit 2
  fi
done
