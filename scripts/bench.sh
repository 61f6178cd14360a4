#!/usr/bin/env bash
# Runs every benchmark in bench/, writes each one's results as JSON, compares them with the
# stored baseline (Google Benchmark's compare.py, from Debian's libbenchmark-tools), and writes
# the figures and cost curves (gnuplot) into docs/performance.md, with the machine and the date.
# Installs missing Debian packages first.
#
#   scripts/bench.sh [--quick] [--save-baseline] [NAME...]
#
#   NAME...          only these benchmark programs (e.g. TraceBench); default: every bench/*Bench.cpp
#   --quick          a short run of each benchmark: checks the whole chain, figures are rough;
#                    docs/performance.md is left alone
#   --save-baseline  store this run as the baseline (bench/baseline/NAME.json) after comparing
#
# Results go to $UMONAT_BENCH_DIR/results (default build-bench/results): NAME.json, and
# NAME.compare.txt when a baseline exists. Environment: UMONAT_BENCH_DIR, CXX (default g++),
# UMONAT_JOBS (default 2).
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
umonat_install_deps bench >&2

quick=0
save=0
names=()
for arg in "$@"; do
  case $arg in
    --quick) quick=1 ;;
    --save-baseline) save=1 ;;
    -*) echo "usage: $0 [--quick] [--save-baseline] [NAME...]" >&2; exit 2 ;;
    *) names+=("$arg") ;;
  esac
done
if [ ${#names[@]} -eq 0 ]; then
  for source in bench/*Bench.cpp; do names+=("$(basename "$source" .cpp)"); done
fi

build=${UMONAT_BENCH_DIR:-build-bench}
results=$build/results
cmake -S . -B "$build" -G Ninja -DCMAKE_CXX_COMPILER="${CXX:-g++}" -DUMONAT_BUILD_BENCH=ON \
  -DUMONAT_BUILD_TESTS=OFF -DUMONAT_BUILD_FUZZ=OFF >&2
cmake --build "$build" -j "${UMONAT_JOBS:-2}" --target "${names[@]}" >&2
mkdir -p "$results"

args=()
if [ "$quick" = 1 ]; then args+=(--benchmark_min_time=0.01); fi
for name in "${names[@]}"; do
  echo "== $name" >&2
  "$build/bench/$name" "${args[@]}" --benchmark_out="$results/$name.json" \
    --benchmark_out_format=json >&2
  rm -f "$results/$name.compare.txt"
  if [ -f "bench/baseline/$name.json" ]; then
    /usr/bin/python3 /usr/share/benchmark/compare.py --no-color benchmarks \
      "bench/baseline/$name.json" "$results/$name.json" > "$results/$name.compare.txt"
    cat "$results/$name.compare.txt"
  fi
done

report=(--results "$results" --names "${names[@]}" --compiler "$(${CXX:-g++} --version | head -n 1)")
if [ "$quick" = 0 ]; then report+=(--doc docs/performance.md --plots docs/performance); fi
/usr/bin/python3 scripts/bench-report.py "${report[@]}"

if [ "$save" = 1 ]; then
  mkdir -p bench/baseline
  for name in "${names[@]}"; do cp "$results/$name.json" "bench/baseline/$name.json"; done
  echo "baseline saved in bench/baseline/" >&2
fi
