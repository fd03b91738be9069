#!/usr/bin/env bash
# The Windows deliverable: the zip holds exactly the service, antennactl, the sample
# configuration and the install notes in one folder, and the executables import no MinGW
# runtime DLL (they run on a Windows notebook as they are).
#
# Usage: windows_package_test.sh ZIP FOLDER
set -u
zip=$(realpath "$1")
folder=$2
failures=0
fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}

listing=$(cmake -E tar tf "$zip" | sort)
expected=$(printf '%s\n' "$folder/" "$folder/Conf.bin" "$folder/ZaltorMultiAntennaSvc.exe" \
  "$folder/antennactl.exe" "$folder/windows-install.txt" | sort)
# Some versions of the archiver list the folder itself, some do not.
if [ "$(grep -v '/$' <<<"$listing")" = "$(grep -v '/$' <<<"$expected")" ]; then
  echo "ok: the zip holds the service, antennactl, Conf.bin and the install notes"
else
  fail "the zip's listing is <<$listing>>"
fi

work=$(mktemp -d "${TMPDIR:-/tmp}/zaltor-package.XXXXXX")
trap 'rm -rf "$work"' EXIT
(cd "$work" && cmake -E tar xf "$zip")
objdump=$(command -v x86_64-w64-mingw32-objdump || true)
for exe in ZaltorMultiAntennaSvc.exe antennactl.exe; do
  f="$work/$folder/$exe"
  [ -s "$f" ] || { fail "$exe is missing or empty"; continue; }
  if [ -n "$objdump" ]; then
    dlls=$("$objdump" -p "$f" | sed -n 's/^\s*DLL Name: //p' | tr 'A-Z' 'a-z' | sort -u)
    if grep -qE 'libstdc\+\+|libgcc|libwinpthread' <<<"$dlls"; then
      fail "$exe needs MinGW runtime DLLs: $(tr '\n' ' ' <<<"$dlls")"
    else
      echo "ok: $exe imports only system DLLs: $(tr '\n' ' ' <<<"$dlls")"
    fi
  fi
done
grep -q -- '-install' "$work/$folder/windows-install.txt" ||
  fail "the install notes do not explain -install"

if [ "$failures" -ne 0 ]; then
  echo "$failures check(s) failed"
  exit 1
fi
echo "all checks passed"
