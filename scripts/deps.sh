#!/usr/bin/env bash
# Installs the Debian packages the build needs when they are missing.
# Sourced by the other scripts; does nothing when everything is present. The purpose
# `run` asks only for what building and running the simulator needs.
#
# The test command (scripts/test.sh) also needs Open vSwitch (openvswitch-switch), whose
# programs the dataplane tests start privately, and python3-pexpect, with which the shell test
# types at the simulator; the other scripts do not: `umonat_install_deps test` asks for them.
# Installing them never leaves the system's Open vSwitch service running.
# `umonat_install_deps bench` (scripts/bench.sh) adds Open vSwitch, Google Benchmark's compare
# tool with the Python packages it uses, and gnuplot.
set -euo pipefail

umonat_missing_packages() {
  local purpose=${1:-build}
  local missing=()
  command -v cmake >/dev/null 2>&1 || missing+=(cmake)
  command -v ninja >/dev/null 2>&1 || missing+=(ninja-build)
  command -v g++ >/dev/null 2>&1 || missing+=(g++)
  # Running the simulator (scripts/run.sh) builds it alone: no test, benchmark or fuzzing tools.
  if [ "$purpose" = run ]; then
    if [[ ${CXX:-g++} == clang* ]]; then
      command -v clang++ >/dev/null 2>&1 || missing+=(clang)
    fi
    [ -f /usr/include/readline/readline.h ] || missing+=(libreadline-dev)
    [ -f /usr/include/nlohmann/json.hpp ] || missing+=(nlohmann-json3-dev)
    echo "${missing[@]:-}"
    return
  fi
  command -v clang++ >/dev/null 2>&1 || missing+=(clang)
  [ -f /usr/include/gtest/gtest.h ] || missing+=(libgtest-dev)
  [ -f /usr/include/gmock/gmock.h ] || missing+=(libgmock-dev)
  [ -f /usr/include/benchmark/benchmark.h ] || missing+=(libbenchmark-dev)
  [ -f /usr/include/readline/readline.h ] || missing+=(libreadline-dev)
  [ -f /usr/include/nlohmann/json.hpp ] || missing+=(nlohmann-json3-dev)
  dpkg -s libclang-rt-14-dev >/dev/null 2>&1 || missing+=(libclang-rt-14-dev)
  command -v nm >/dev/null 2>&1 || missing+=(binutils)
  if [ "$purpose" = test ]; then
    command -v pkg-config >/dev/null 2>&1 || missing+=(pkg-config)
    PATH="$PATH:/usr/sbin:/sbin" command -v ovs-vswitchd >/dev/null 2>&1 ||
      missing+=(openvswitch-switch)
    # The interactive shell's test types at it in a pseudo-terminal.
    python3 -c 'import pexpect' >/dev/null 2>&1 || /usr/bin/python3 -c 'import pexpect' \
      >/dev/null 2>&1 || missing+=(python3-pexpect)
  fi
  if [ "$purpose" = bench ]; then
    PATH="$PATH:/usr/sbin:/sbin" command -v ovs-vswitchd >/dev/null 2>&1 ||
      missing+=(openvswitch-switch)
    [ -f /usr/share/benchmark/compare.py ] || missing+=(libbenchmark-tools)
    /usr/bin/python3 -c 'import scipy' >/dev/null 2>&1 || missing+=(python3-scipy)
    /usr/bin/python3 -c 'import numpy' >/dev/null 2>&1 || missing+=(python3-numpy)
    command -v gnuplot >/dev/null 2>&1 || missing+=(gnuplot-nox)
  fi
  echo "${missing[@]:-}"
}

# Process ids of running Open vSwitch daemons, one a line, but for the private ones the tests
# start (their command lines name their umonat-ovs.* directories).
umonat_ovs_daemons() {
  local pid
  for pid in $(pgrep -x 'ovs-vswitchd|ovsdb-server' 2>/dev/null || true); do
    tr '\0' ' ' <"/proc/$pid/cmdline" 2>/dev/null | grep -q 'umonat-ovs\.' || echo "$pid"
  done | sort
}

umonat_install_deps() {
  local purpose=${1:-build}
  local missing
  missing=$(umonat_missing_packages "$purpose")
  [ -z "$missing" ] && return 0
  echo "Installing missing packages: $missing"
  local sudo=""
  if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
  export DEBIAN_FRONTEND=noninteractive

  # Package scripts must not start system services (Open vSwitch's above all): a policy that
  # denies every start, in place only for the install and only when the system has none.
  local policy=/usr/sbin/policy-rc.d own_policy=""
  if [ ! -e "$policy" ]; then
    printf '#!/bin/sh\nexit 101\n' | $sudo tee "$policy" >/dev/null
    $sudo chmod 755 "$policy"
    own_policy=yes
  fi
  local before status=0
  before=$(umonat_ovs_daemons)
  $sudo apt-get update -q || status=$?
  if [ "$status" -eq 0 ]; then
    # shellcheck disable=SC2086
    $sudo apt-get install -y -q --no-install-recommends $missing || status=$?
  fi
  if [ -n "$own_policy" ]; then $sudo rm -f "$policy"; fi
  [ "$status" -eq 0 ] || return "$status"

  local started
  started=$(comm -13 <(echo "$before") <(umonat_ovs_daemons) | tr '\n' ' ')
  if [ -n "${started// /}" ]; then
    echo "error: installing packages started Open vSwitch daemons (pids: ${started% }); stop" \
      "them (e.g. 'systemctl stop openvswitch-switch') and run again" >&2
    return 1
  fi
}
