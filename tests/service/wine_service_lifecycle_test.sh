#!/usr/bin/env bash
# The service's whole life under Wine's service manager, on the simulated notebook:
# a stop while its worker is still starting leaves the switches alone; then
# -install registers and starts it with the installer's ZALTOR_* settings (the service key's
# "Environment" value), the manager shows it running, the notebook's switch lines (published
# to a file by the simulated firmware) show what the service did, -remove stops and deletes
# it, and the switches are left in the default mode of the active config set.
#
# Usage: wine_service_lifecycle_test.sh BIN_DIR WINE_RUN
#   BIN_DIR   build-windows/bin (ZaltorMultiAntennaSvc.exe, antennactl.exe, Conf.bin)
#   WINE_RUN  scripts/wine-run.sh
# The running service is driven with antennactl.exe over ncalrpc (status, why, health,
# mode 2) and keeps running until -remove stops it.
#
# The service name is fixed, so this test must not run alongside another one that installs
# it (ctest: RUN_SERIAL). Whatever happens, the service is deleted at the end.
set -u -o pipefail
bin=$1
wine_run=$2
svc="$bin/ZaltorMultiAntennaSvc.exe"
ctl="$bin/antennactl.exe"
name=ZaltorMultiAntennaSvc
version_key='HKLM\SOFTWARE\ZALTOR\ZALTOR MultiAntenna'
service_key="HKLM\\SYSTEM\\CurrentControlSet\\Services\\$name"

work=$(mktemp -d "${TMPDIR:-/tmp}/zaltor-wine-lifecycle.XXXXXX")
. "$(dirname "$0")/wine_test_lib.sh"
. "$(dirname "$0")/wine_session.sh"
created_version_key=0
cleanup() {
  # Delete the service whatever state the test left it in.
  wine_tool sc stop "$name" >/dev/null
  wine_tool sc delete "$name" >/dev/null
  if [ "$created_version_key" = 1 ]; then wine_tool reg delete "$version_key" /f >/dev/null; fi
  wine_session_end
  rm -rf "$work"
}
trap cleanup EXIT

lines_are() { [ "$(cat "$work/lines.txt" 2>/dev/null)" = "$1" ]; }

# --- set-up ------------------------------------------------------------------------------
# One Wine session for the whole test: the service lives as long as the session does.
wine_session_begin "$wine_run" "$work"
# A service left behind by an earlier run would make -install fail.
wine_tool sc stop "$name" >/dev/null
wine_tool sc delete "$name" >/dev/null
# The product's installer creates the configuration version's key; the service never does.
if ! wine_tool reg query "$version_key" >/dev/null; then
  wine_tool reg add "$version_key" /f >/dev/null && created_version_key=1
fi

# Real time (the service manager's waits are real), the switches start in mode 4, no
# Bluetooth (so the 5 GHz link selects config set 1, whose default mode is 1). The Wi-Fi
# interface appears only after 8 seconds: the worker's start-up waits for it (retrying
# every 5 seconds), which keeps the service running long enough to be seen running even
# when it cannot serve.
cat >"$work/scenario.json" <<EOF
{
  "clock": { "mode": "scaled", "speed": 1.0 },
  "linesFile": "$(winpath "$work/lines.txt" | sed 's/\\/\\\\/g')",
  "firmware": { "switchCount": 2, "lines": 0 },
  "bluetooth": { "BTHENUM": [], "BTHLE": [] },
  "wlan": { "interfaces": [] },
  "timeline": [
    { "at": 8, "patch": { "wlan": { "interfaces": [
      { "description": "Wireless AX (R2) 160MHz", "guid": "{6A1B2C3D-1111-2222-3333-444455556666}",
        "connected": true, "channel": 36 } ] } } }
  ]
}
EOF

# --- a stop while the worker is still starting ---------------------------------------------
# The same notebook whose Wi-Fi interface never appears: the worker's start-up waits for it
# for as long as the service lives. -remove stops the running service (the stop control,
# the status polling); the worker is not initialised, so the stop cannot set a mode and the
# switches stay where they were.
sed 's/"at": 8,/"at": 100000,/' "$work/scenario.json" >"$work/never.json"
out=$(ZALTOR_PLATFORM=sim ZALTOR_SIM_SCENARIO="$(winpath "$work/never.json")" \
  "$wine_run" "$svc" -install 2>"$work/stderr")
[ "$out" = "$name is installed." ] || fail "-install (start-up stop): <<$out>> $(cat "$work/stderr")"
if wait_until 20 lines_are "lines=0x00 mode=4" && state_is RUNNING; then
  out=$(ZALTOR_PLATFORM=sim "$wine_run" "$svc" -remove 2>"$work/stderr")
  rc=$?
  if [ "$rc" = 0 ] && [[ "$out" =~ ^Stopping\ $name\.+$'\n'$name\ is\ stopped\.$'\n'$name\ is\ removed\.$ ]]; then
    pass "-remove during the worker's start-up prints the stopping lines, stopped and removed"
  else
    fail "-remove during the worker's start-up: exit $rc, output <<$out>> $(cat "$work/stderr")"
  fi
  lines_are "lines=0x00 mode=4" && pass "a stop during the start-up leaves the switches alone" ||
    fail "after a stop during the start-up the lines are <<$(cat "$work/lines.txt")>>"
else
  fail "the service with the missing interface did not start: <<$(service_state)>>"
fi
wine_tool sc delete "$name" >/dev/null
# A deleted service is gone once its process has ended (under Wine the process waits up to
# a second for the thread that answered the stop).
wait_until 10 service_gone || fail "the first service did not go away: <<$(service_state)>>"
rm -f "$work/lines.txt"

# --- install -----------------------------------------------------------------------------
# -install and -remove build the platform's backends like every run: they too are run on
# the simulated notebook (its default scenario for -remove, which publishes no lines).
out=$(ZALTOR_PLATFORM=sim ZALTOR_SIM_SCENARIO="$(winpath "$work/scenario.json")" \
  "$wine_run" "$svc" -install 2>"$work/stderr")
rc=$?
if [ "$rc" = 0 ] && [ "$out" = "$name is installed." ]; then
  pass "-install prints \"$name is installed.\" and exits with 0"
else
  fail "-install: exit $rc, output <<$out>> $(cat "$work/stderr")"
fi

env_value=$(wine_tool reg query "$service_key" /v Environment)
case "$env_value" in
  *REG_MULTI_SZ*ZALTOR_PLATFORM=sim*ZALTOR_SIM_SCENARIO=Z:*scenario.json*)
    pass "the service key's Environment value holds the installer's settings" ;;
  *) fail "the service key's Environment value: <<$env_value>>" ;;
esac

state=$(service_state)
[ "$state" = RUNNING ] && pass "sc query shows the service RUNNING" ||
  fail "sc query shows <<$state>>, not RUNNING"

# The notebook of the service process publishes its starting lines: the process runs on the
# simulated notebook of the registered scenario.
if wait_until 20 lines_are "lines=0x00 mode=4"; then
  pass "the service process runs the registered scenario's notebook (switches in mode 4)"
else
  fail "no switch lines from the service's notebook: <<$(cat "$work/lines.txt" 2>/dev/null)>>"
fi

# --- the running service -----------------------------------------------------------------
ctl_ok() { "$wine_run" "$ctl" status >"$work/status.txt" 2>"$work/ctl-stderr"; }
# The endpoint opens once the worker has started (the Wi-Fi interface comes after 8 s).
if wait_until 60 ctl_ok; then
  pass "antennactl.exe status reaches the service over ncalrpc"
  # A Windows program's text output ends its lines with CR LF.
  tr -d '\r' <"$work/status.txt" >"$work/status-lf.txt"
  grep -q '^switches: *2$' "$work/status-lf.txt" && grep -q '^modes: *4$' "$work/status-lf.txt" &&
    pass "status shows 2 switches and 4 modes" ||
    fail "status: <<$(cat "$work/status.txt")>>"
else
  fail "antennactl.exe status: exit $?, <<$(cat "$work/status.txt")>> $(cat "$work/ctl-stderr")"
fi
# The diagnostics interface on the same endpoint: before the loop's first decision "why"
# answers {"decision": null}; once the first pass has decided, it explains it.
why_json() { "$wine_run" "$ctl" why --json 2>"$work/ctl-stderr" | tr -d '\r' >"$work/why.json"; }
decided() { why_json && grep -q '"trigger": "[a-z]*"' "$work/why.json"; }
if why_json && grep -Eq '^\{"decision": (null|\{"time": )' "$work/why.json"; then
  pass "antennactl.exe why --json answers over ncalrpc"
else
  fail "antennactl.exe why --json: <<$(cat "$work/why.json")>> $(cat "$work/ctl-stderr")"
fi
if wait_until 60 decided; then
  grep -q '"outcome": "chosen"' "$work/why.json" && grep -q '"configSet": 1' "$work/why.json" &&
    pass "why --json shows the loop's first decision (config set 1, chosen)" ||
    fail "why --json: <<$(cat "$work/why.json")>>"
  out=$("$wine_run" "$ctl" why 2>"$work/ctl-stderr" | tr -d '\r')
  [[ "$out" == *"Result: mode "* ]] && pass "antennactl.exe why explains it in words" ||
    fail "antennactl.exe why: <<$out>> $(cat "$work/ctl-stderr")"
  out=$("$wine_run" "$ctl" health --json 2>"$work/ctl-stderr" | tr -d '\r')
  [[ "$out" == '{"ports": [{"port": "Main", "state": '* ]] && pass "antennactl.exe health --json" ||
    fail "antennactl.exe health --json: <<$out>> $(cat "$work/ctl-stderr")"
else
  fail "no decision within 60 s: <<$(cat "$work/why.json")>> $(cat "$work/ctl-stderr")"
fi

out=$("$wine_run" "$ctl" mode 2 2>"$work/ctl-stderr")
rc=$?
[ "$rc" = 0 ] && pass "antennactl.exe mode 2 completes" ||
  fail "antennactl.exe mode 2: exit $rc, <<$out>> $(cat "$work/ctl-stderr")"
wait_until 10 lines_are "lines=0x22 mode=2" && pass "the switches stand in mode 2" ||
  fail "after mode 2 the lines are <<$(cat "$work/lines.txt")>>"
state=$(service_state)
[ "$state" = RUNNING ] && pass "the service is still RUNNING" || fail "the service is <<$state>>"

out=$(ZALTOR_PLATFORM=sim "$wine_run" "$svc" -remove 2>"$work/stderr")
rc=$?
if [ "$rc" = 0 ] && [[ "$out" =~ ^Stopping\ $name\.+$'\n'$name\ is\ stopped\.$'\n'$name\ is\ removed\.$ ]]; then
  pass "-remove prints the stopping lines, \"$name is stopped.\" and \"$name is removed.\""
else
  fail "-remove: exit $rc, output <<$out>> $(cat "$work/stderr")"
fi

# --- after the service -------------------------------------------------------------------
# Wine's sc prints nothing for a service that does not exist, and fails.
wait_until 10 service_gone
query=$(wine_tool sc query "$name")
if [ -z "$query" ] && ! wine_tool reg query "$service_key" >/dev/null; then
  pass "sc query finds no such service, and its registry key is gone"
else
  fail "after -remove: sc query <<$query>>, the key $(wine_tool reg query "$service_key" >/dev/null && echo is there || echo is gone)"
fi
# Config set 1 (5 GHz, no Bluetooth) has default mode 1: both switches "Main".
if wait_until 5 lines_are "lines=0x33 mode=1"; then
  pass "the switches are left in the default mode 1"
else
  fail "after the service ended the lines are <<$(cat "$work/lines.txt")>>, not mode 1"
fi

if [ "$failures" -ne 0 ]; then
  echo "$failures check(s) failed"
  exit 1
fi
echo "all checks passed"
