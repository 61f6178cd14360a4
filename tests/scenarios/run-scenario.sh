#!/usr/bin/env bash
# Runs one golden scenario through umonat-sim and compares its transcript with the expected one.
#
#   run-scenario.sh [--record] SIM EXPECTED [SCENARIO]
#
# The transcript is what umonat-sim writes to standard output and standard error, in order,
# followed by a line "[exit STATUS]". The scenario runs from its own directory, so reports name
# it by its file name; without SCENARIO, umonat-sim runs its built-in default (standard input is
# /dev/null, which umonat-sim does not read as a scenario, whatever the caller's input is). A
# first line "# options: ..." in the scenario gives umonat-sim's options (e.g. --keep-going).
# MOX_TRACE is cleared, so only the scenario's own 'trace' lines turn traces on.
#
# On a mismatch the unified diff (expected, then actual) goes to standard output and the exit
# status is 1. With --record the transcript is written to EXPECTED instead.
set -uo pipefail

record=0
if [ "${1:-}" = --record ]; then
  record=1
  shift
fi
if [ $# -lt 2 ] || [ $# -gt 3 ]; then
  echo "usage: $0 [--record] SIM EXPECTED [SCENARIO]" >&2
  exit 2
fi
sim=$(realpath "$1")
expected=$2
scenario=${3:-}

args=()
dir=.
if [ -n "$scenario" ]; then
  dir=$(dirname "$scenario")
  first=$(head -n 1 "$scenario")
  case $first in
    "# options: "*) read -r -a args <<< "${first#"# options: "}" ;;
  esac
  args+=("$(basename "$scenario")")
fi

actual=$(mktemp)
trap 'rm -f "$actual"' EXIT
(cd "$dir" && env -u MOX_TRACE "$sim" "${args[@]}") < /dev/null > "$actual" 2>&1
echo "[exit $?]" >> "$actual"

if [ "$record" = 1 ]; then
  cp "$actual" "$expected"
  echo "recorded $expected"
  exit 0
fi
if ! diff -u --label "expected: $expected" --label "actual" "$expected" "$actual"; then
  echo "The transcript differs. If the change is intended, re-record: scripts/rerecord.sh" \
    "$(basename "$expected" .out)"
  exit 1
fi
