#!/usr/bin/env bash
# Builds and runs every test: the native build, the sanitizer builds and the Windows
# cross build, whose tests run under Wine. Exits non-zero on the first failure.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh --windows --wine
jobs=$(nproc)
run() { echo; echo "==== $*"; "$@"; }

run cmake --preset default
run cmake --build --preset default -j"$jobs"
run ctest --preset default

run cmake --preset asan
run cmake --build --preset asan -j"$jobs"
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 run ctest --preset asan

run cmake --preset tsan
run cmake --build --preset tsan -j"$jobs"
TSAN_OPTIONS=halt_on_error=1 run ctest --preset tsan --no-tests=ignore

run cmake --preset windows
run cmake --build --preset windows -j"$jobs"
# Under Wine (scripts/wine-run.sh makes the prefix in build-windows/ on first use).
run ctest --preset windows
echo
echo "All builds and tests passed."
