#!/usr/bin/env bash
# Installs what the build and the tests need on Debian 12, if it is missing.
# Usage: scripts/install-deps.sh [--browser] [--windows] [--wine]
set -euo pipefail
want=(cmake ninja-build g++ pkg-config libgtest-dev libgmock-dev googletest libbenchmark-dev
      nlohmann-json3-dev libssl-dev clang-format clang libclang-rt-14-dev clang-tidy-14
      clang-tools-14)
for arg in "$@"; do
  case "$arg" in
    --browser) want+=(chromium) ;;  # the lab report's rendering test
    --windows) want+=(g++-mingw-w64-x86-64 mingw-w64-tools wixl msitools) ;;
    --wine) want+=(wine wine64) ;;
  esac
done
missing=()
for p in "${want[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
