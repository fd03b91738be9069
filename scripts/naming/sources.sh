# shellcheck shell=bash
# Sourced by scripts/check-naming.sh and scripts/apply-naming.sh: which project sources the
# naming check parses, and with which compiler arguments.
#
# Each source file is parsed once, in the configuration that compiles it:
#   native   every project file of build/compile_commands.json (the default preset);
#   windows  the files that only the Windows build compiles, and those with _WIN32 branches,
#            from build-windows/compile_commands.json (the windows preset) with clang told to
#            parse for MinGW-w64 and given MinGW's libstdc++ headers;
#   fuzz     the libFuzzer entry points (tests/fuzz), which only the fuzz preset builds:
#            parsed with their include paths and the native generated headers.
# Headers are checked through the files that include them (the header filter admits the
# project's own folders only, so generated stubs, GoogleTest and system headers are skipped).
# The build directories must have been built first: the Windows sources include the stubs
# that widl generates during the build.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
native_db=$root/build
windows_db=$root/build-windows
header_filter="^$root/(src|tools|tests|bench)/"
jobs=${NAMING_JOBS:-2}

# Lists the files into $1/native.txt, $1/windows.txt and $1/fuzz.txt.
naming_list_sources() {
  local out=$1
  for db in "$native_db" "$windows_db"; do
    if [ ! -f "$db/compile_commands.json" ]; then
      echo "naming: $db/compile_commands.json is missing (configure and build that preset first)" >&2
      return 1
    fi
  done
  python3 - "$root" "$native_db/compile_commands.json" "$windows_db/compile_commands.json" \
    "$out" <<'EOF'
import json, os, re, sys
root, native_db, windows_db, out = sys.argv[1:]
project = re.compile(re.escape(root) + r"/(src|tools|tests|bench)/.*\.(cpp|cc|c)$")
def files(db):
    seen = []
    for entry in json.load(open(db)):
        path = os.path.normpath(os.path.join(entry["directory"], entry["file"]))
        if project.match(path) and path not in seen:
            seen.append(path)
    return seen
native = files(native_db)
windows = [f for f in files(windows_db)
           if f not in native or "_WIN32" in open(f, errors="replace").read()]
fuzz_dir = os.path.join(root, "tests", "fuzz")
fuzz = sorted(os.path.join(fuzz_dir, f) for f in os.listdir(fuzz_dir) if f.endswith(".cpp")) \
    if os.path.isdir(fuzz_dir) else []
fuzz = [f for f in fuzz if f not in native]
for name, lst in (("native", native), ("windows", windows), ("fuzz", fuzz)):
    with open(os.path.join(out, name + ".txt"), "w") as f:
        f.write("".join(p + "\n" for p in lst))
# The fuzz entry points get a compile database of their own, with the include paths that
# tests/fuzz/CMakeLists.txt gives them.
os.makedirs(os.path.join(out, "fuzz-db"), exist_ok=True)
generated = os.path.join(os.path.dirname(native_db), "generated")
with open(os.path.join(out, "fuzz-db", "compile_commands.json"), "w") as f:
    json.dump([{"directory": root, "file": p,
                "arguments": ["clang++", "-std=c++20", "-I" + os.path.join(root, "src"),
                              "-I" + os.path.join(root, "tests"), "-I" + generated,
                              "-c", p]} for p in fuzz], f, indent=1)
EOF
}

# MinGW-w64's libstdc++ include directories, as -isystem arguments for clang-tidy.
naming_mingw_args() {
  local dir
  echo | x86_64-w64-mingw32-g++-posix -std=c++20 -E -x c++ - -v 2>&1 |
    sed -n '/#include <...> search starts here/,/End of search list/p' |
    grep '/include/c++' | while read -r dir; do
      echo "--extra-arg=-isystem$(realpath "$dir")"
    done
}

# Runs clang-tidy-14 with the repository's .clang-tidy over the files listed in $1/*.txt, two
# (NAMING_JOBS) at a time, output into $1/*.log; with an export directory $2, each file's
# fixes go into a YAML file of their own there. One file per clang-tidy process: a process
# given several files reports a header's name once, with the renames of the first file's
# uses only, and the other files' uses would be left unrenamed.
# Returns non-zero if any invocation failed.
naming_run() {
  local out=$1 export_dir=${2:-} rc=0
  local common=(--quiet "--header-filter=$header_filter" --extra-arg=-w)
  local mingw
  mapfile -t mingw < <(naming_mingw_args)
  run_set() {
    local set=$1
    shift
    [ -s "$out/$set.txt" ] || return 0
    # shellcheck disable=SC2016 # expanded by the inner shell, once per invocation
    xargs -P"$jobs" -n1 -d '\n' sh -c '
      export_dir=$1; shift
      if [ -n "$export_dir" ]; then
        yaml=$(mktemp "$export_dir/fixes-XXXXXX.yaml")
        set -- "--export-fixes=$yaml" "$@"
      fi
      exec clang-tidy-14 "$@"' sh "$export_dir" "$@" <"$out/$set.txt" >"$out/$set.log" 2>&1
  }
  run_set native -p "$native_db" "${common[@]}" || rc=1
  run_set windows -p "$windows_db" "${common[@]}" --extra-arg=--target=x86_64-w64-mingw32 \
    "${mingw[@]}" || rc=1
  run_set fuzz -p "$out/fuzz-db" "${common[@]}" || rc=1
  return $rc
}
