#!/usr/bin/env bash
# Builds everything (the benchmarks too, so that they keep compiling; they are
# not run here) and runs every test. Installs missing Debian packages first.
#
# Environment (all optional):
#   UMONAT_BUILD_DIR   build directory (default: build)
#   CXX                compiler (default: g++)
#   UMONAT_WERROR      ON to treat warnings as errors
#   UMONAT_SANITIZE    ON to build and test under AddressSanitizer and UBSan
#   UMONAT_JOBS        parallel build and test jobs (default: 2)
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
umonat_install_deps test

build=${UMONAT_BUILD_DIR:-build}
jobs=${UMONAT_JOBS:-2}
cmake -S . -B "$build" -G Ninja \
  -DCMAKE_CXX_COMPILER="${CXX:-g++}" \
  -DUMONAT_WERROR="${UMONAT_WERROR:-OFF}" \
  -DUMONAT_SANITIZE="${UMONAT_SANITIZE:-OFF}" \
  -DUMONAT_BUILD_TESTS=ON \
  -DUMONAT_BUILD_BENCH=ON
cmake --build "$build" -j "$jobs"
ctest --test-dir "$build" --output-on-failure -j "$jobs"
