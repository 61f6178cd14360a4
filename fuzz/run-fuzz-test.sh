#!/usr/bin/env bash
# Runs a libFuzzer target as a test: from its seed corpus, which stays unchanged (new inputs go to
# a scratch directory removed afterwards), with the given options (a fixed number of runs and a
# fixed seed make the run repeatable). An input that makes the target fail is written under
# ARTIFACTS and fails the test.
#
# usage: run-fuzz-test.sh TARGET SEED_CORPUS ARTIFACTS/ [libFuzzer options...]
set -euo pipefail
target=$1
corpus=$2
artifacts=$3
shift 3
mkdir -p "$artifacts"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$target" -artifact_prefix="$artifacts" "$@" "$work" "$corpus"
