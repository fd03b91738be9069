#!/usr/bin/env bash
# Runs a Windows program of the cross build under Wine, in a 64-bit prefix of its own that
# is made on first use. CMake uses it as the cross build's emulator, so that ctest and test
# discovery run the .exe files here.
#
# Usage: scripts/wine-run.sh PROGRAM.exe [ARG ...]
#        scripts/wine-run.sh --make-prefix    only makes the prefix (if need be)
# ZALTOR_WINEPREFIX chooses the prefix (default: build-windows/wine-prefix of this
# repository); WINE chooses the Wine loader (default: wine, else wine64).
set -euo pipefail
here="$(cd "$(dirname "$0")/.." && pwd)"
prefix="${ZALTOR_WINEPREFIX:-$here/build-windows/wine-prefix}"
wine="${WINE:-}"
if [ -z "$wine" ]; then
  if command -v wine >/dev/null 2>&1; then wine=wine
  elif command -v wine64 >/dev/null 2>&1; then wine=wine64
  else echo "wine-run.sh: Wine is not installed (scripts/install-deps.sh --wine)" >&2; exit 127
  fi
fi
export WINEPREFIX="$prefix" WINEARCH=win64 WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
# Several tests may start at once: the first makes the prefix, the others wait for it.
if [ ! -f "$prefix/.zaltor-ready" ]; then
  mkdir -p "$(dirname "$prefix")"
  exec 9>"$prefix.lock"
  flock 9
  if [ ! -f "$prefix/.zaltor-ready" ]; then
    wineboot -i >/dev/null 2>&1 || "$wine" wineboot -i >/dev/null 2>&1
    wineserver -w 2>/dev/null || true
    touch "$prefix/.zaltor-ready"
  fi
  flock -u 9
  exec 9>&-
fi
[ "${1:-}" = --make-prefix ] && exit 0
exec "$wine" "$@"
