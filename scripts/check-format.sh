#!/usr/bin/env bash
# Checks that every C++ source of the project is formatted by the repository's .clang-format
# (clang-format --dry-run --Werror); exits non-zero and names the files otherwise.
# `clang-format -i <file>` formats one.
set -euo pipefail
cd "$(dirname "$0")/.."
git ls-files -z -- 'src/*.cpp' 'src/*.h' 'tools/*.cpp' 'tools/*.h' 'tests/*.cpp' 'tests/*.h' \
  'bench/*.cpp' 'bench/*.h' | xargs -0 clang-format --dry-run --Werror
