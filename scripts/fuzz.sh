#!/usr/bin/env bash
# Builds the fuzz targets with clang++, libFuzzer, AddressSanitizer and UBSan in a build directory
# of their own and runs one target for SECONDS (default 600) in one process.
# Extra arguments go to libFuzzer. docs/reliability.md says what each target covers and how to
# keep a failing input as a test.
#
#   scripts/fuzz.sh scenario 3600
#   scripts/fuzz.sh show-command 60 -only_ascii=1
#
# The work corpus (what the fuzzer learns, seeded from fuzz/corpus/TARGET) and the inputs that
# make the target fail live outside the repository, under UMONAT_FUZZ_DIR (default:
# ~/.cache/umonat-fuzz), and are kept from one run to the next.
#
# Environment (all optional): UMONAT_FUZZ_BUILD_DIR (default: build-fuzz), UMONAT_FUZZ_DIR,
# UMONAT_JOBS (build jobs, default: 2).
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
  echo "usage: scripts/fuzz.sh scenario|history|show-command [SECONDS] [libFuzzer options...]" >&2
  exit 2
}
[ $# -ge 1 ] || usage
target=$1
shift
seconds=600
if [ $# -ge 1 ] && [[ $1 =~ ^[0-9]+$ ]]; then
  seconds=$1
  shift
fi
# The longest input each target takes; the same bounds as its test (fuzz/CMakeLists.txt).
case "$target" in
  scenario) max_len=4096 ;;
  history) max_len=1024 ;;
  show-command) max_len=256 ;;
  *) usage ;;
esac

source scripts/deps.sh
umonat_install_deps

build=${UMONAT_FUZZ_BUILD_DIR:-build-fuzz}
binary=fuzz_${target//-/_}
cmake -S . -B "$build" -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DUMONAT_SANITIZE=ON \
  -DUMONAT_BUILD_FUZZ=ON -DUMONAT_BUILD_TESTS=OFF -DUMONAT_BUILD_BENCH=OFF >/dev/null
cmake --build "$build" -j "${UMONAT_JOBS:-2}" --target "$binary"

state=${UMONAT_FUZZ_DIR:-${XDG_CACHE_HOME:-$HOME/.cache}/umonat-fuzz}
work=$state/$target/corpus
artifacts=$state/$target/failures/
mkdir -p "$work" "$artifacts"
dict=()
if [ -f "fuzz/$target.dict" ]; then dict=(-dict="fuzz/$target.dict"); fi

export ASAN_OPTIONS=${ASAN_OPTIONS:-halt_on_error=1:abort_on_error=1:detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-halt_on_error=1:print_stacktrace=1}
unset MOX_TRACE
echo "fuzzing $target for $seconds s; work corpus $work, failing inputs in $artifacts"
exec "$build/fuzz/$binary" -max_total_time="$seconds" -max_len="$max_len" -entropic=0 \
  -timeout=60 -print_final_stats=1 -artifact_prefix="$artifacts" "${dict[@]}" "$@" \
  "$work" "fuzz/corpus/$target"
