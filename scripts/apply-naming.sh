#!/usr/bin/env bash
# Renames the project's own names to the naming rule of .clang-tidy (docs/contributing.md,
# "Naming"): clang-tidy's readability-identifier-naming exports its fixes for every source
# of both compile databases (see scripts/naming/sources.sh), all against the untouched tree,
# then clang-apply-replacements applies them at once (a header's rename, reported by every
# file that includes it, is applied once) and clang-format re-formats the changed files.
# Then build both presets and run scripts/check-naming.sh: a name that clang-tidy reports
# but cannot rename (one that would collide with another, or spelt inside a macro) is left
# for a hand edit.
set -euo pipefail
# shellcheck source=scripts/naming/sources.sh
source "$(dirname "$0")/naming/sources.sh"
cd "$root"
scripts/naming/make-clang-tidy.py --check
if ! git diff --quiet; then
  echo "apply-naming: commit or stash the working tree's changes first" >&2
  exit 1
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/fixes"
naming_list_sources "$work"
naming_run "$work" "$work/fixes" || true  # violations make clang-tidy exit non-zero
# What clang-tidy reports but cannot rename, and files it could not parse.
grep -hE 'cannot be fixed|clang-diagnostic-error' "$work"/logs/*.log | sort -u || true
scripts/naming/filter-fixes.py "$work/fixes"
clang-apply-replacements-14 --remove-change-desc-files=false "$work/fixes"
# Count the declarations renamed (each is reported by every file that includes it).
python3 - "$work/fixes" <<'PY'
import glob, re, sys
diag = re.compile(r"Message: +'(.*)'\n +FilePath: +'(.*)'\n +FileOffset: +(\d+)\n"
                  r" +Replacements:\n +- ")
renamed = set()
for f in glob.glob(sys.argv[1] + "/*.yaml"):
    renamed.update(diag.findall(open(f).read()))
print(f"apply-naming: {len(renamed)} declarations renamed")
PY
# Re-format what changed: a longer name may push a line past the column limit.
changed=$(git diff --name-only | grep -E '\.(cpp|h)$' || true)
if [ -n "$changed" ]; then
  # shellcheck disable=SC2086 # one word per file
  clang-format -i $changed
fi
echo "apply-naming: $(git diff --name-only | wc -l) files changed"
