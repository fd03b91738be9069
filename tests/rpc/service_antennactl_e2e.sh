#!/usr/bin/env bash
# The Windows service in console mode under Wine on the simulated notebook, driven by
# antennactl.exe over the real RPC runtime (ncalrpc): a fixed mode, status, raw calls, a call
# whose integer division by zero faults (fault=0xC0000094, exit code 3), and the service
# still answering after it.
#
# Usage: service_antennactl_e2e.sh WINE_RUN SERVICE_EXE ANTENNACTL_EXE
# The endpoint name is unique per run, so that runs may overlap.
set -uo pipefail
run=$(realpath "$1") svc=$(realpath "$2") ctl=$(realpath "$3")
work=$(mktemp -d)
pid=
cleanup() {
  [ -n "$pid" ] && kill "$pid" 2>/dev/null && wait "$pid" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT
fail() {
  echo "FAIL: $*"
  echo "--- service output"
  cat "$work/out.txt" 2>/dev/null
  exit 1
}

export ZALTOR_PLATFORM=sim
export ZALTOR_RPC_ENDPOINT="ZaltorRpcE2E-$$-$RANDOM"
# Switch 0 in "Div" silences port 0 and port 1 never has a signal: mode 2 (switch 0 "Div",
# switch 1 "Main") leaves no antenna to average over.
cat >"$work/scenario.json" <<'JSON'
{"clock": {"mode": "scaled", "speed": 1.0}, "stopAfter": 120, "timeline": [],
 "radio": {"rssi": [{"Main": -55, "Div": -95}, {"Main": -95, "Div": -95}]}}
JSON
export ZALTOR_SIM_SCENARIO="Z:$(printf '%s' "$work/scenario.json" | tr / '\\')"
# The key in which the service records the configuration version (the installer's job).
"$run" reg add 'HKLM\SOFTWARE\ZALTOR\ZALTOR MultiAntenna' /f >/dev/null 2>&1

(cd "$work" && exec "$run" "$svc" -console >"$work/out.txt" 2>&1) &
pid=$!

ctl() {  # ctl ARGS... -> sets out and rc
  out=$("$run" "$ctl" "$@" 2>/dev/null | tr -d '\r')
  rc=${PIPESTATUS[0]}
}
# Wait (bounded) for the endpoint: the first calls fail with 1722 until it is open.
for _ in $(seq 1 200); do
  ctl call QueryValue 0x1002
  [ "$rc" = 0 ] && break
  kill -0 "$pid" 2>/dev/null || fail "the service ended before answering"
  sleep 0.1
done
[ "$rc" = 0 ] || fail "no answer from the service: rc=$rc out=$out"
[ "$out" = $'status=1\nvalue=0' ] || fail "reserved command: $out"

ctl mode 1
[ "$rc" = 0 ] || fail "mode 1: rc=$rc out=$out"
ctl status
[ "$rc" = 0 ] || fail "status: rc=$rc out=$out"
grep -q '^user mode: *1' <<<"$out" || fail "status after mode 1: $out"
ctl call QueryValue 0x1006
[ "$rc" = 0 ] && [ "$out" = $'status=0\nvalue=4' ] || fail "mode count: rc=$rc out=$out"
ctl call QueryValue 0x1003
[ "$rc" = 0 ] && [ "$out" = $'status=0\nvalue=-55' ] || fail "average in mode 1: rc=$rc out=$out"

ctl mode 2
[ "$rc" = 0 ] || fail "mode 2: rc=$rc out=$out"
ctl call QueryValue 0x1004
[ "$rc" = 0 ] && [ "$out" = $'status=0\nvalue=2' ] || fail "user mode: rc=$rc out=$out"
ctl call QueryValue 0x1003
[ "$rc" = 3 ] && [ "$out" = "fault=0xC0000094" ] || fail "division by zero: rc=$rc out=$out"

# The service goes on answering.
ctl call QueryValue 0x1005
[ "$rc" = 0 ] && [ "$out" = $'status=0\nvalue=2' ] || fail "after the fault: rc=$rc out=$out"
ctl mode 1
ctl call QueryValue 0x1003
[ "$rc" = 0 ] && [ "$out" = $'status=0\nvalue=-55' ] || fail "average again: rc=$rc out=$out"
echo "service_antennactl_e2e: every check passed"
