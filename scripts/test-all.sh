#!/usr/bin/env bash
# Builds and runs every test: the native build, the sanitizer builds and the Windows cross
# build, whose tests run under Wine. Exits non-zero on the first failure.
#
# CI runs this on 2 cores within ten minutes, so:
# - each test program, and natively each library and tool, compiles as one unity file
#   (ZALTOR_UNITY_BUILD, cmake/warnings.cmake);
# - the sanitizer builds build only what their tests run (the test executables and the
#   programs those start);
# - one clang build serves both the AddressSanitizer/UndefinedBehaviorSanitizer tests and the
#   libFuzzer targets (preset asan), which run for twenty seconds each: their seeds and the
#   new inputs found meanwhile (scripts/fuzz.sh alone runs them longer, optimised);
# - the naming check parses the files of a unity batch as one file, as they compile, and
#   runs while the Windows tests run under Wine, in a Wine session of their own that is
#   begun first (its prefix made at the start, beside the native build);
# - under CI (CI=true) the native builds keep line tables only as debug information (-g1;
#   the Windows build has none).
# Each step is timed.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh --browser --windows --wine
# Wine makes its prefix mostly by waiting on its own processes (3 s of CPU in 10 s): made
# now, beside the native build, it is ready when the Windows tests start.
wine_prefix_log=$(mktemp)
scripts/wine-run.sh --make-prefix >"$wine_prefix_log" 2>&1 &
wine_prefix_pid=$!
trap 'kill "$wine_prefix_pid" 2>/dev/null || true; rm -f "$wine_prefix_log"' EXIT
jobs=$(nproc)
fuzz_seconds=20
started=$SECONDS
run() {
  local t=$SECONDS
  echo
  echo "==== $*"
  "$@"
  echo "---- $((SECONDS - t)) s: $*"
}

configure_flags=()
if [ "${CI:-}" = true ]; then
  configure_flags+=(-DZALTOR_DEBUG_INFO=-g1)
fi
# The test executables of the thread-sanitizer run: the labels of its test preset.
tsan_targets=$(sed -n 's/.*"name": "tsan", "configurePreset".*"label": "\([^"]*\)".*/\1/p' \
  CMakePresets.json | tr '|' ' ')
[ -n "$tsan_targets" ] || tsan_targets=zaltor_tests

# Style first, it takes seconds: every source formatted by .clang-format.
run scripts/check-format.sh

run cmake --preset default "${configure_flags[@]}"
run cmake --build --preset default -j"$jobs"
run ctest --preset default

# The asan preset is clang's: a build-asan/ that an older gcc-based preset configured is
# configured afresh.
asan_fresh=()
if [ -f build-asan/CMakeCache.txt ] && ! grep -q '^CMAKE_CXX_COMPILER:.*clang' build-asan/CMakeCache.txt; then
  asan_fresh=(--fresh)
fi
run cmake --preset asan "${asan_fresh[@]}" "${configure_flags[@]}"
run cmake --build --preset asan -j"$jobs" --target zaltor_tests fuzz_targets
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 run ctest --preset asan

# The libFuzzer targets of that build, twenty seconds each, two at a time (scripts/fuzz.sh):
# their seeds and whatever new inputs that many mutations reach.
ZALTOR_FUZZ_PRESET=asan run scripts/fuzz.sh "$fuzz_seconds"

run cmake --preset tsan "${configure_flags[@]}"
# shellcheck disable=SC2086 # one word per target
run cmake --build --preset tsan -j"$jobs" --target $tsan_targets
TSAN_OPTIONS=halt_on_error=1 run ctest --preset tsan --no-tests=ignore

run cmake --preset windows
run cmake --build --preset windows -j"$jobs"
# The naming rule (.clang-tidy) over the sources of both builds; it parses the Windows
# sources with the stubs that this build generated.
# The tests under Wine (scripts/wine-run.sh makes the prefix in build-windows/ on first use)
# spend most of their time waiting for the emulator's processes, and the naming check is
# pure CPU: they run side by side, and the Wine tests' output follows the check's.
if ! wait "$wine_prefix_pid"; then
  cat "$wine_prefix_log" >&2
  echo "Wine could not make its prefix" >&2
  exit 1
fi
rm -f "$wine_prefix_log"
# The Windows tests share one Wine session, begun here with its output on /dev/null. The
# first Wine program of a session starts Wine's system processes, which keep that program's
# output open until the session ends; ctest waits for a test's output to close, so a test
# that began the session held one of ctest's two slots to the end of the run.
# shellcheck source=tests/service/wine_session.sh
source tests/service/wine_session.sh
wine_dir=$(mktemp -d)
wine_log=$wine_dir/ctest.log
trap 'kill "${wine_pid:-}" 2>/dev/null || true; wine_session_end; rm -rf "$wine_dir"' EXIT
wine_session_begin scripts/wine-run.sh "$wine_dir" || true  # without it they only run slower
ctest --preset windows >"$wine_log" 2>&1 &
wine_pid=$!
wine_started=$SECONDS
run scripts/check-naming.sh
echo
echo "==== ctest --preset windows (started with the naming check)"
wine_rc=0
wait "$wine_pid" || wine_rc=$?
wine_session_end
cat "$wine_log"
echo "---- $((SECONDS - wine_started)) s from its start: ctest --preset windows"
[ "$wine_rc" -eq 0 ] || exit "$wine_rc"
echo
echo "All builds and tests passed in $((SECONDS - started)) s."
