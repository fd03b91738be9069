#!/usr/bin/env bash
# Checks the project's naming rule (.clang-tidy, docs/contributing.md "Naming") with
# clang-tidy's readability-identifier-naming over every project source, each parsed once:
# the native build's sources, the Windows-only ones (and those with _WIN32 branches) as
# MinGW-w64 sources, and the fuzz entry points. Exits non-zero on any violation.
#
# Needs the default and windows presets configured and built (the Windows sources include
# stubs that widl generates during the build). NAMING_JOBS sets the parallelism (2);
# NAMING_KEEP=1 keeps the work directory (the groups parsed and the logs).
set -euo pipefail
# shellcheck source=scripts/naming/sources.sh
source "$(dirname "$0")/naming/sources.sh"
cd "$root"
scripts/naming/make-clang-tidy.py --check

work=$(mktemp -d)
[ -n "${NAMING_KEEP:-}" ] && echo "naming: work directory $work" || trap 'rm -rf "$work"' EXIT
naming_list_sources "$work"
rc=0
naming_run "$work" || rc=1
# A header included by many files reports the same name many times: print each once.
cat "$work"/logs/*.log | grep -E '^[^ ].*: (warning|error): ' | sort -u >"$work/violations.txt" || true
if [ -s "$work/violations.txt" ]; then
  cat "$work/violations.txt"
  echo "naming: $(wc -l <"$work/violations.txt") violation(s); scripts/apply-naming.sh renames" \
    "them, see docs/contributing.md" >&2
  exit 1
fi
if [ "$rc" -ne 0 ]; then
  cat "$work"/logs/*.log >&2
  echo "naming: clang-tidy failed" >&2
  exit 1
fi
if [ -s "$work/one-by-one.txt" ]; then
  echo "naming: $(wc -l <"$work/one-by-one.txt") group(s) of files did not parse as one file" \
    "and were split"
fi
echo "naming: $(wc -l <"$work/covered.txt") files checked, no violation"
