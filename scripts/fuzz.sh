#!/usr/bin/env bash
# Builds the libFuzzer targets of tests/fuzz (clang with AddressSanitizer and
# UndefinedBehaviorSanitizer) and runs each for a bounded time, two at a time. Exits non-zero
# when a target finds a crash, a leak, a timeout, an excess of memory or a sanitizer report;
# the input that did it is kept in build-<preset>/fuzz-findings/.
#
# Usage: scripts/fuzz.sh [SECONDS_PER_TARGET [TARGET ...]]   (default: 60 s, every target)
# ZALTOR_FUZZ_PRESET chooses the build: fuzz (default; optimised, for long runs) or asan (the
# sanitizer tests' Debug build, which builds the same targets: scripts/test-all.sh fuzzes
# there so that CI compiles the sources once for both).
#
# Each target starts from its seeds in tests/fuzz/corpus/<target>/, which it only reads: the
# inputs it finds go to a temporary directory (libFuzzer writes new inputs into the first
# corpus directory it is given), so a run never changes the repository.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
shift || true
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  targets=(ini_config_fuzz config_decrypt_fuzz scenario_fuzz control_frames_fuzz)
fi

preset=${ZALTOR_FUZZ_PRESET:-fuzz}
case "$preset" in
  fuzz | asan) ;;
  *) echo "fuzz.sh: ZALTOR_FUZZ_PRESET must be fuzz or asan" >&2; exit 2 ;;
esac
build=build-$preset
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" -j"$(nproc)" --target fuzz_targets

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
findings=$build/fuzz-findings
mkdir -p "$findings"

max_len_of() {
  case "$1" in
    control_frames_fuzz) echo 4096 ;;
    *) echo 16384 ;;
  esac
}

run_target() {
  local t=$1
  mkdir -p "$work/$t/new" "$work/$t/artifacts"
  ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
    "$build/bin/$t" "$work/$t/new" "tests/fuzz/corpus/$t" \
    -max_total_time="$seconds" -timeout=25 -rss_limit_mb=2048 -max_len="$(max_len_of "$t")" \
    -artifact_prefix="$work/$t/artifacts/" -print_final_stats=1 >"$work/$t.log" 2>&1
}

failed=()
report() {
  local t=$1 rc=$2
  if [ "$rc" -eq 0 ]; then
    echo "fuzz: $t: $(grep -E '^stat::number_of_executed_units' "$work/$t.log" | awk '{print $2}') runs, no findings"
  else
    failed+=("$t")
    echo "fuzz: $t FAILED (exit $rc):"
    tail -n 60 "$work/$t.log"
    cp -r "$work/$t/artifacts/." "$findings/" 2>/dev/null || true
  fi
}

# Two at a time: the machines this runs on have two cores.
i=0
while [ $i -lt ${#targets[@]} ]; do
  a=${targets[$i]}
  b=${targets[$((i + 1))]:-}
  run_target "$a" & pa=$!
  if [ -n "$b" ]; then run_target "$b" & pb=$!; fi
  rc=0; wait $pa || rc=$?; report "$a" $rc
  if [ -n "$b" ]; then rc=0; wait $pb || rc=$?; report "$b" $rc; fi
  i=$((i + 2))
done

if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz: findings in ${failed[*]}; inputs kept in $findings/"
  exit 1
fi
echo "fuzz: every target ran ${seconds} s without findings"
