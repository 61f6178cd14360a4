#!/usr/bin/env bash
# Installs the Debian packages the build needs when they are missing.
# Sourced by the other scripts; does nothing when everything is present.
set -euo pipefail

umonat_missing_packages() {
  local missing=()
  command -v cmake >/dev/null 2>&1 || missing+=(cmake)
  command -v ninja >/dev/null 2>&1 || missing+=(ninja-build)
  command -v g++ >/dev/null 2>&1 || missing+=(g++)
  command -v clang++ >/dev/null 2>&1 || missing+=(clang)
  [ -f /usr/include/gtest/gtest.h ] || missing+=(libgtest-dev)
  [ -f /usr/include/gmock/gmock.h ] || missing+=(libgmock-dev)
  [ -f /usr/include/benchmark/benchmark.h ] || missing+=(libbenchmark-dev)
  [ -f /usr/include/readline/readline.h ] || missing+=(libreadline-dev)
  dpkg -s libclang-rt-14-dev >/dev/null 2>&1 || missing+=(libclang-rt-14-dev)
  command -v nm >/dev/null 2>&1 || missing+=(binutils)
  echo "${missing[@]:-}"
}

umonat_install_deps() {
  local missing
  missing=$(umonat_missing_packages)
  [ -z "$missing" ] && return 0
  echo "Installing missing packages: $missing"
  local sudo=""
  if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -q
  # shellcheck disable=SC2086
  $sudo apt-get install -y -q --no-install-recommends $missing
}
