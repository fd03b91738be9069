#!/usr/bin/env bash
# The Windows service executable run by hand under Wine, on the simulated notebook:
#   - without arguments the dispatcher fails (the process was not started by the service
#     manager): the failure line, then "Invalid arguments.", exit code 1;
#   - -console on a notebook whose board the configuration does not know ends with 110;
#   - -console writes rflog.txt in the current directory as UTF-8 with a byte-order mark
#     and CR LF line ends, and a second run appends without a second mark.
#
# Usage: wine_console_test.sh BIN_DIR WINE_RUN
#   BIN_DIR   build-windows/bin (ZaltorMultiAntennaSvc.exe and Conf.bin)
#   WINE_RUN  scripts/wine-run.sh
set -u
bin=$1
wine_run=$2
svc="$bin/ZaltorMultiAntennaSvc.exe"

work=$(mktemp -d "${TMPDIR:-/tmp}/zaltor-wine-console.XXXXXX")
. "$(dirname "$0")/wine_session.sh"
trap 'wine_session_end; rm -rf "$work"' EXIT
wine_session_begin "$wine_run" "$work"
. "$(dirname "$0")/wine_test_lib.sh"

# The settings come from this environment only (none from an installed service's key).
unset ZALTOR_RPC_ENDPOINT ZALTOR_SIM_SCENARIO
export ZALTOR_PLATFORM=sim

# --- by hand, without arguments -----------------------------------------------------------
# (In a session whose service manager is idle: see wine_session.sh.)
out=$("$wine_run" "$svc" 2>/dev/null)
rc=$?
expected=$'Service failed to run w/err 0x00000427\nInvalid arguments.'
if [ "$rc" = 1 ] && [ "$out" = "$expected" ]; then
  pass "run by hand: dispatcher failure line, Invalid arguments., exit code 1"
else
  fail "run by hand: exit $rc, output <<$out>>, expected exit 1 and <<$expected>>"
fi

# --- -console on a notebook the configuration does not know --------------------------------
# A virtual clock: the run takes no real time beyond Wine's own.
cat >"$work/unknown-board.json" <<'EOF'
{ "clock": { "mode": "virtual" }, "board": { "products": ["ZZ99QQ"] } }
EOF
run_console() {
  (cd "$work" && ZALTOR_SIM_SCENARIO="$(winpath "$work/unknown-board.json")" \
    "$wine_run" "$svc" -console 2>"$work/stderr")
}
out=$(run_console)
rc=$?
if [ "$rc" = 110 ]; then
  pass "-console with an unsupported notebook exits with 110"
else
  fail "-console with an unsupported notebook: exit $rc, expected 110; output <<$out>> $(cat "$work/stderr")"
fi
case "$out" in
  "4: Starting Rpc Server.."$'\n'*"4: Worker obj init() Failed!"$'\n'"RpcServerConnect returned: 0x6e") \
    pass "-console output starts the server, reports the failed start and the result 0x6e" ;;
  *) fail "-console output: <<$out>>" ;;
esac

# --- rflog.txt -----------------------------------------------------------------------------
# The log file is named once the worker's start-up has got past the configuration, so this
# needs a notebook the configuration knows (the built-in one). The run ends when the
# notebook's clock reaches stopAfter, or earlier when the control endpoint cannot be set up.
cat >"$work/known-board.json" <<'EOF2'
{ "clock": { "mode": "virtual" }, "stopAfter": 60 }
EOF2
run_known() {
  (cd "$work" && ZALTOR_SIM_SCENARIO="$(winpath "$work/known-board.json")" \
    "$wine_run" "$svc" -console >"$work/known.out" 2>&1)
}
log="$work/rflog.txt"
rm -f "$log"
run_known
if [ ! -s "$log" ]; then
  fail "rflog.txt was not written in the current directory; output: $(cat "$work/known.out")"
else
  first=$(od -An -tx1 -N3 "$log" | tr -d ' \n')
  [ "$first" = efbbbf ] && pass "rflog.txt begins with the UTF-8 byte-order mark" ||
    fail "rflog.txt begins with $first, not the byte-order mark ef bb bf"
  crlf=$(grep -c $'\r$' "$log")
  lf=$(tr -cd '\n' <"$log" | wc -c)
  lone_cr=$(tr -d '\n' <"$log" | tr -cd '\r' | wc -c)
  if [ "$lf" -gt 0 ] && [ "$crlf" = "$lf" ] && [ "$lone_cr" = "$lf" ]; then
    pass "rflog.txt: each of its $lf line ends is CR LF"
  else
    fail "rflog.txt: $lf line feeds, $crlf of them after CR, $lone_cr CRs in all"
  fi
  grep -q $'^This build is forced to use mode switching.\r$' "$log" && pass "rflog.txt holds the worker's lines" ||
    fail "rflog.txt lacks the line \"This build is forced to use mode switching.\""
  size_one=$(stat -c %s "$log")
  cp "$log" "$work/one-run.txt"

  run_known
  size_two=$(stat -c %s "$log")
  marks=$(grep -c $'\xef\xbb\xbf' "$log")
  [ "$marks" = 1 ] && pass "a second run appends without a second byte-order mark" ||
    fail "rflog.txt holds $marks byte-order marks after two runs"
  if [ "$size_two" -gt "$size_one" ] && head -c "$size_one" "$log" | cmp -s - "$work/one-run.txt" &&
    tail -c +"$((size_one + 1))" "$log" | grep -q $'^This build is forced to use mode switching.\r$'; then
    pass "the second run's text follows the first's ($size_one bytes, then $size_two)"
  else
    fail "rflog.txt after two runs does not hold the first run's text followed by the second's"
  fi
fi

if [ "$failures" -ne 0 ]; then
  echo "$failures check(s) failed"
  exit 1
fi
echo "all checks passed"
