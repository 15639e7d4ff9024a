#!/usr/bin/env bash
# Installs what building and testing the SDK needs on Debian 12.
# Usage: scripts/setup.sh [--arm] [--clang]
#   --arm    adds the 64-bit Arm cross toolchain and libraries
#   --clang  adds clang, its sanitizer and libFuzzer runtimes, and clang-format
# Packages already present are skipped: with nothing missing it asks apt nothing
# and prints nothing, so every test run can call it.
set -euo pipefail

want_arm=0
want_clang=0
for arg in "$@"; do
  case "$arg" in
    --arm) want_arm=1 ;;
    --clang) want_clang=1 ;;
    *) echo "usage: $0 [--arm] [--clang]" >&2; exit 2 ;;
  esac
done

sudo_cmd=""
if [ "$(id -u)" -ne 0 ]; then sudo_cmd="sudo"; fi

# Libraries the SDK links, plus the test and benchmark frameworks and the build tools.
dev_libs="libxerces-c-dev libcjson-dev libjsoncpp-dev libcurl4-openssl-dev libmicrohttpd-dev libsqlite3-dev"
test_libs="libgtest-dev libgmock-dev libbenchmark-dev"
tools="cmake make g++ gcc pkg-config curl scdoc ccache"
# What the package checks run: Debian's package checker, the ABI comparison, completion.
tools="$tools lintian abigail-tools bash-completion"
# What the bridge's tests run against: a real Alertmanager and a headless browser.
services="prometheus-alertmanager chromium"
native="$dev_libs $test_libs $tools $services"
if [ "$want_clang" -eq 1 ]; then
  native="$native clang libclang-rt-14-dev clang-format"
fi

missing_of() {
  local out=""
  for p in "$@"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
      out="$out $p"
    fi
  done
  echo "$out"
}

updated=0
apt_install() {
  if [ "$updated" -eq 0 ]; then
    $sudo_cmd apt-get update -qq
    updated=1
  fi
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq --no-install-recommends "$@"
}

missing=$(missing_of $native)
if [ -n "$missing" ]; then
  echo "setup: installing$missing"
  # shellcheck disable=SC2086
  apt_install $missing
fi

if [ "$want_arm" -eq 1 ]; then
  if ! dpkg --print-foreign-architectures | grep -qx arm64; then
    $sudo_cmd dpkg --add-architecture arm64
    updated=0
  fi
  arm="g++-aarch64-linux-gnu gcc-aarch64-linux-gnu qemu-user pkgconf:arm64"
  for p in $dev_libs libgtest-dev libgmock-dev; do arm="$arm $p:arm64"; done
  missing=$(missing_of $arm)
  if [ -n "$missing" ]; then
    echo "setup: installing for arm64:$missing"
    # shellcheck disable=SC2086
    apt_install $missing
  fi
fi
