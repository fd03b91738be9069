# shellcheck shell=bash
# Sourced by scripts/check-naming.sh and scripts/apply-naming.sh: which project sources the
# naming check parses, and with which compiler arguments.
#
# Each source file is checked once, in the configuration that compiles it:
#   native   every project file of build/compile_commands.json (the default preset);
#   windows  the files that only the Windows build compiles, and those with _WIN32 branches,
#            from build-windows/compile_commands.json (the windows preset) with clang told to
#            parse for MinGW-w64 and given MinGW's libstdc++ headers;
#   fuzz     the libFuzzer entry points (tests/fuzz), which only the fuzz preset builds:
#            parsed with their include paths and the native generated headers.
# The files of a unity batch (a test program; in the native build also a library or tool)
# are parsed together, as one file that includes them all, the way they compile
# (ZALTOR_UNITY_BUILD): the headers they share are parsed once instead of once per file,
# which is most of the work. A group that does not parse so is split in halves until the
# parts parse.
# Headers, and the files of a group, are checked through the files that include them (the
# header filter admits the project's own folders only, so generated stubs, GoogleTest and
# system headers are skipped).
# The build directories must have been built first: the Windows sources include the stubs
# that widl generates during the build.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
native_db=$root/build
windows_db=$root/build-windows
header_filter="^$root/(src|tools|tests|bench)/"
jobs=${NAMING_JOBS:-2}

# Lists what to parse into $1/native.txt, $1/windows.txt and $1/fuzz.txt, with a compile
# database for each in $1/<set>-db (it lists the groups, made in $1/groups, and their files),
# and the project files those cover in $1/covered.txt.
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
import json, os, re, shlex, sys
root, native_db, windows_db, out = sys.argv[1:]
project = re.compile(re.escape(root) + r"/(src|tools|tests|bench)/.*\.(cpp|cc|c)$")
unity = re.compile(r".*/Unity/unity_[0-9]+_(cxx|c)\.(cxx|c)$")
include = re.compile(r'^#include "(.*)"$', re.M)

def entries(db):
    """(project file, its arguments, directory) of each file the database compiles; the
    files of a CMake unity file are listed with that file's arguments."""
    result, seen = [], set()
    for entry in json.load(open(db)):
        path = os.path.normpath(os.path.join(entry["directory"], entry["file"]))
        args = entry["arguments"] if "arguments" in entry else shlex.split(entry["command"])
        if project.match(path):
            members = [path]
        elif unity.match(path):
            members = [os.path.normpath(m) for m in include.findall(open(path).read())]
        else:
            continue
        # The arguments without the file and the output, and the target (CMake puts its
        # objects in CMakeFiles/<target>.dir/).
        flags, skip, target = [], None, ""
        for a in args:
            if skip:
                if skip == "-o":
                    target = a.split(".dir/")[0]
                skip = None
            elif a in ("-o", "-c"):
                skip = a
            elif os.path.normpath(os.path.join(entry["directory"], a)) != path:
                flags.append(a)
        for m in members:
            if project.match(m) and m not in seen:
                seen.add(m)
                # Only the files of a CMake unity file are known to parse together.
                result.append((m, flags, entry["directory"], target if len(members) > 1 else m))
    return result

# A group is the files of one CMake unity file, whole (0): files that do not compile
# together are not known to parse together.
group_size = 0
groups_dir = os.path.join(out, "groups")
os.makedirs(groups_dir, exist_ok=True)

def write_set(name, files, group_size):
    """Groups the files by arguments; writes <name>.txt (what to parse) and <name>-db."""
    by_flags = {}
    for path, flags, directory, target in files:
        by_flags.setdefault((tuple(flags), directory, target), []).append(path)
    chunks = []
    for (flags, directory, _), paths in by_flags.items():
        size = group_size or len(paths)
        for i in range(0, len(paths), size):
            chunks.append((flags, directory, paths[i:i + size]))
    db, parse = [], []

    def group(stem, paths, flags, directory):
        """The file that parses `paths` together, and its halves (stem-1, stem-2) for when
        it does not parse; a single file is itself."""
        if len(paths) == 1:
            return paths[0]
        ext = ".c" if all(p.endswith(".c") for p in paths) else ".cpp"
        unit = os.path.join(groups_dir, stem + ext)
        with open(unit, "w") as f:
            f.write("".join(f'#include "{p}"\n' for p in paths))
        db.append({"directory": directory, "file": unit, "arguments": list(flags) + ["-c", unit]})
        if len(paths) > 2:
            half = len(paths) // 2
            group(stem + "-1", paths[:half], flags, directory)
            group(stem + "-2", paths[half:], flags, directory)
        return unit

    for n, (flags, directory, paths) in enumerate(chunks):
        parse.append(group(f"{name}-{n}", paths, flags, directory))
        for p in paths:
            db.append({"directory": directory, "file": p, "arguments": list(flags) + ["-c", p]})
    os.makedirs(os.path.join(out, name + "-db"), exist_ok=True)
    with open(os.path.join(out, name + "-db", "compile_commands.json"), "w") as f:
        json.dump(db, f, indent=1)
    with open(os.path.join(out, name + ".txt"), "w") as f:
        f.write("".join(p + "\n" for p in parse))

native = entries(native_db)
in_native = set(e[0] for e in native)
windows = [e for e in entries(windows_db)
           if e[0] not in in_native or "_WIN32" in open(e[0], errors="replace").read()]
# The fuzz entry points, with the include paths that tests/fuzz/CMakeLists.txt gives them.
fuzz_dir = os.path.join(root, "tests", "fuzz")
generated = os.path.join(os.path.dirname(native_db), "generated")
fuzz_flags = ["clang++", "-std=c++20", "-I" + os.path.join(root, "src"),
              "-I" + os.path.join(root, "tests"), "-I" + generated]
fuzz = [(os.path.join(fuzz_dir, f), fuzz_flags, root, f) for f in sorted(os.listdir(fuzz_dir))
        if f.endswith(".cpp")] if os.path.isdir(fuzz_dir) else []
fuzz = [e for e in fuzz if e[0] not in in_native]
# The Windows files are parsed one by one: grouped, Windows headers and the generated stubs
# clash between files (two procedure tables define the same helpers), and the groups' splits
# cost more than they save.
for name, files, size in (("native", native, group_size), ("windows", windows, 1),
                          ("fuzz", fuzz, 1)):
    write_set(name, files, size)
with open(os.path.join(out, "covered.txt"), "w") as f:
    f.write("".join(p + "\n" for p in sorted(set(e[0] for e in native + windows + fuzz))))
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

# Runs clang-tidy-14 with the repository's .clang-tidy over what $1/*.txt lists, two
# (NAMING_JOBS) at a time, output into $1/logs/; with an export directory $2, each parse's
# fixes go into a YAML file of their own there. One file or group per clang-tidy process: a
# process given several files reports a header's name once, with the renames of the first
# file's uses only, and the other files' uses would be left unrenamed. A group with a compile
# error is parsed again as its two halves (it is listed in $1/one-by-one.txt).
# Returns non-zero if any invocation failed.
naming_run() {
  local out=$1 export_dir=${2:-} rc=0
  # A group file in the work directory finds the configuration there. (Naming it with
  # --config-file instead makes every parse several times slower with clang-tidy 14.)
  cp "$root/.clang-tidy" "$out/.clang-tidy"
  local common=(--quiet "--header-filter=$header_filter" --extra-arg=-w)
  local mingw
  mapfile -t mingw < <(naming_mingw_args)
  mkdir -p "$out/logs"
  : >"$out/one-by-one.txt"
  run_set() {
    local set=$1
    shift
    [ -s "$out/$set.txt" ] || return 0
    # shellcheck disable=SC2016 # expanded by the inner shell, once per invocation
    xargs -P"$jobs" -n1 -d '\n' bash -c '
      out=$1 export_dir=$2 unit=${*: -1}
      opts=("${@:3:$#-3}")
      tidy() {  # FILE: one clang-tidy process, its output in a log of its own
        log=$(mktemp "$out/logs/XXXXXX.log")
        fixes=()
        if [ -n "$export_dir" ]; then
          fixes=("--export-fixes=$(mktemp "$export_dir/fixes-XXXXXX.yaml")")
        fi
        clang-tidy-14 "${fixes[@]}" "${opts[@]}" "$1" >"$log" 2>&1
      }
      parse() {  # FILE or GROUP; a group that does not compile as one file: its halves
        local unit=$1 rc
        tidy "$unit"
        rc=$?
        if [ "${unit#"$out/groups/"}" = "$unit" ] || ! grep -q "\[clang-diagnostic-error\]" "$log"; then
          return $rc
        fi
        rm -f "$log"
        if [ ${#fixes[@]} -gt 0 ]; then rm -f "${fixes[0]#--export-fixes=}"; fi
        echo "$unit" >>"$out/one-by-one.txt"
        local halves=("${unit%.*}-1.${unit##*.}" "${unit%.*}-2.${unit##*.}") files f
        if [ -f "${halves[0]}" ]; then
          files=("${halves[@]}")
        else
          mapfile -t files < <(sed -n "s/^#include \"\(.*\)\"$/\1/p" "$unit")
        fi
        rc=0
        for f in "${files[@]}"; do parse "$f" || rc=1; done
        return $rc
      }
      parse "$unit"' sh "$out" "$export_dir" "$@" <"$out/$set.txt"
  }
  run_set native -p "$out/native-db" "${common[@]}" || rc=1
  run_set windows -p "$out/windows-db" "${common[@]}" --extra-arg=--target=x86_64-w64-mingw32 \
    "${mingw[@]}" || rc=1
  run_set fuzz -p "$out/fuzz-db" "${common[@]}" || rc=1
  return $rc
}
