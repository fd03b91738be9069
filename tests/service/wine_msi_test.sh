#!/usr/bin/env bash
# The installer package under Wine's msiexec and service manager, on the simulated notebook:
# msiexec /i ... /qn with the ZALTOR_* properties installs the files into
# %ProgramFiles%\ZALTOR\MultiAntenna, creates the configuration version's key, registers the
# service as -install does (with those properties in its "Environment" value) and starts it;
# the installed antennactl.exe reaches it over ncalrpc; the next version's package upgrades
# it in place (one product afterwards, the service running again, the configuration version
# of its ver.txt registered), and the package after it keeps that registered version; an
# older version's package is refused;
# msiexec /x ... /qn takes the service, the files and the key away again (under Wine: see
# the note at the uninstall), and once more for a stopped service, when every file goes.
#
# Usage: wine_msi_test.sh MSI UPGRADE_MSI UPGRADE_CONFIG_VERSION UPGRADE2_MSI WINE_RUN
#   MSI                     build-windows/ZaltorMultiAntenna-<version>-x64.msi
#   UPGRADE_MSI             the same files under the next version, with a ver.txt
#   UPGRADE_CONFIG_VERSION  the configuration version in that ver.txt
#   UPGRADE2_MSI            the same files under the version after it, without a ver.txt
#   WINE_RUN                scripts/wine-run.sh
#
# The service name is fixed, so this test must not run alongside another one that installs
# it (ctest: RUN_SERIAL). Whatever happens, whatever it installed is removed at the end.
set -u -o pipefail
msi=$(realpath "$1")
upgrade_msi=$(realpath "$2")
upgrade_config_version=$3
upgrade2_msi=$(realpath "$4")
wine_run=$5
name=ZaltorMultiAntennaSvc
product_name='ZALTOR Multi Antenna Service'
version_key='HKLM\SOFTWARE\ZALTOR\ZALTOR MultiAntenna'
service_key="HKLM\\SYSTEM\\CurrentControlSet\\Services\\$name"
uninstall_key='HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall'
install_dir='C:\Program Files\ZALTOR\MultiAntenna'

work=$(mktemp -d "${TMPDIR:-/tmp}/zaltor-wine-msi.XXXXXX")
. "$(dirname "$0")/wine_test_lib.sh"
msiexec() {
  env -u ZALTOR_PLATFORM -u ZALTOR_SIM_SCENARIO -u ZALTOR_RPC_ENDPOINT \
    "$wine_run" msiexec "$@" >"$work/msiexec.out" 2>&1
}
# The product codes of every installed product of this name.
installed_products() {
  wine_tool reg query "$uninstall_key" | sed -n 's/.*\\\({[0-9A-Fa-f-]*}\)$/\1/p' |
    while read -r code; do
      wine_tool reg query "$uninstall_key\\$code" /v DisplayName | grep -q "$product_name" &&
        echo "$code"
    done
}
install_dir_unix() { wine_tool winepath -u "$install_dir"; }
# The Wine prefix of wine-run.sh, whose processes are this test's.
prefix=${ZALTOR_WINEPREFIX:-$(cd "$(dirname "$wine_run")/.." && pwd)/build-windows/wine-prefix}
# True when no process of this prefix runs the installed service executable.
no_service_process() {
  local pid
  for pid in $(pgrep -f 'MultiAntenna.ZaltorMultiAntennaSvc\.exe'); do
    tr '\0' '\n' <"/proc/$pid/environ" 2>/dev/null | grep -qx "WINEPREFIX=$prefix" && return 1
  done
  return 0
}

. "$(dirname "$0")/wine_session.sh"
remove_everything() {
  for code in $(installed_products); do msiexec /x "$code" /qn; done
  # A package that failed half-way may have left the service or the key behind.
  wine_tool sc stop "$name" >/dev/null
  wine_tool sc delete "$name" >/dev/null
  wine_tool reg delete "$version_key" /f >/dev/null
  # And a service executable that Wine's msiexec could not delete (see the uninstall).
  wait_until 15 no_service_process
  local folder
  folder=$(wine_tool winepath -u 'C:\Program Files\ZALTOR')
  [ -n "$folder" ] && rm -rf "$folder"
}
cleanup() {
  remove_everything
  wine_session_end
  rm -rf "$work"
}
trap cleanup EXIT

# --- set-up ------------------------------------------------------------------------------
wine_session_begin "$wine_run" "$work"
remove_everything
wait_until 10 service_gone

# Real time, the switches start in mode 4, a connected 5 GHz interface.
cat >"$work/scenario.json" <<JSON
{
  "clock": { "mode": "scaled", "speed": 1.0 },
  "linesFile": "$(winpath "$work/lines.txt" | sed 's/\\/\\\\/g')",
  "firmware": { "switchCount": 2, "lines": 0 },
  "bluetooth": { "BTHENUM": [], "BTHLE": [] },
  "wlan": { "interfaces": [
    { "description": "Wireless AX (R2) 160MHz", "guid": "{6A1B2C3D-1111-2222-3333-444455556666}",
      "connected": true, "channel": 36 } ] }
}
JSON
sim_properties=(ZALTOR_PLATFORM=sim "ZALTOR_SIM_SCENARIO=$(winpath "$work/scenario.json")")

ctl_ok() {
  "$wine_run" "$(install_dir_unix)/antennactl.exe" status >"$work/status.txt" 2>"$work/ctl-stderr"
}
check_running_and_answering() {
  local when=$1
  if wait_until 30 state_is RUNNING; then
    pass "$when: sc query shows the service RUNNING"
  else
    fail "$when: sc query shows <<$(service_state)>>"
  fi
  if wait_until 60 ctl_ok; then
    tr -d '\r' <"$work/status.txt" >"$work/status-lf.txt"
    grep -q '^switches: *2$' "$work/status-lf.txt" && grep -q '^modes: *4$' "$work/status-lf.txt" &&
      pass "$when: the installed antennactl.exe status answers over ncalrpc (2 switches, 4 modes)" ||
      fail "$when: status: <<$(cat "$work/status.txt")>>"
  else
    fail "$when: antennactl.exe status: <<$(cat "$work/status.txt")>> $(cat "$work/ctl-stderr")"
  fi
}

# --- install -----------------------------------------------------------------------------
if msiexec /i "$(winpath "$msi")" /qn "${sim_properties[@]}"; then
  pass "msiexec /i ... /qn installs the package"
else
  fail "msiexec /i: <<$(cat "$work/msiexec.out")>>"
fi
dir=$(install_dir_unix)
for f in ZaltorMultiAntennaSvc.exe antennactl.exe Conf.bin; do
  [ -s "$dir/$f" ] && pass "$f is in $install_dir" || fail "$f is not in $dir"
done
# The build's own configuration version (ZALTOR_CONFIG_VERSION; ctest passes it on).
build_config_version=${ZALTOR_TEST_MSI_CONFIG_VERSION:-}
if [ -z "$build_config_version" ]; then
  [ ! -e "$dir/ver.txt" ] && pass "a build without a configuration version ships no ver.txt" ||
    fail "ver.txt was installed by a build without a configuration version"
fi
wine_tool reg query "$version_key" >/dev/null && pass "the key $version_key exists" ||
  fail "the key $version_key is missing"

reg_value() { wine_tool reg query "$service_key" /v "$1" | sed -n "s/^ *$1 *\(REG_[A-Z_]*\) *\(.*\)$/\1 \2/p"; }
[ "$(reg_value Type)" = "REG_DWORD 0x10" ] && pass "the service runs in its own process" ||
  fail "Type: <<$(reg_value Type)>>"
[ "$(reg_value Start)" = "REG_DWORD 0x2" ] && pass "the service starts automatically" ||
  fail "Start: <<$(reg_value Start)>>"
[ "$(reg_value ErrorControl)" = "REG_DWORD 0x1" ] && pass "a start failure is a normal error" ||
  fail "ErrorControl: <<$(reg_value ErrorControl)>>"
[ "$(reg_value ObjectName)" = "REG_SZ LocalSystem" ] && pass "the service runs as LocalSystem" ||
  fail "ObjectName: <<$(reg_value ObjectName)>>"
[ "$(reg_value DisplayName)" = "REG_SZ $product_name" ] && pass "the display name is \"$product_name\"" ||
  fail "DisplayName: <<$(reg_value DisplayName)>>"
case "$(reg_value Description)" in
  "REG_SZ Service for management of multi antenna system. If this service is stopped, Zaltor MultiAntenna App will stop working.")
    pass "the description is the service's" ;;
  *) fail "Description: <<$(reg_value Description)>>" ;;
esac
case "$(reg_value ImagePath)" in
  *'C:\Program Files\ZALTOR\MultiAntenna\ZaltorMultiAntennaSvc.exe'*)
    pass "the service runs the installed executable" ;;
  *) fail "ImagePath: <<$(reg_value ImagePath)>>" ;;
esac
env_value=$(reg_value Environment)
case "$env_value" in
  "REG_MULTI_SZ ZALTOR_PLATFORM=sim\\0ZALTOR_SIM_SCENARIO=Z:"*"scenario.json"|\
  "REG_MULTI_SZ ZALTOR_SIM_SCENARIO=Z:"*"scenario.json\\0ZALTOR_PLATFORM=sim")
    pass "the Environment value holds exactly the properties given to msiexec" ;;
  *) fail "Environment: <<$env_value>>" ;;
esac

check_running_and_answering "after the install"
if [ -n "$build_config_version" ]; then
  version_is() {
    wine_tool reg query "$version_key" /v ConfigVersion | grep -q "REG_SZ *$1\$"
  }
  wait_until 30 version_is "$build_config_version" &&
    pass "the service registered the build's configuration version $build_config_version" ||
    fail "ConfigVersion: <<$(wine_tool reg query "$version_key" /v ConfigVersion)>>"
fi
grep -q "^lines=" "$work/lines.txt" 2>/dev/null &&
  pass "the service runs the simulated notebook of the given scenario" ||
  fail "no switch lines from the service's notebook"

# --- upgrade -----------------------------------------------------------------------------
before=$(installed_products)
if msiexec /i "$(winpath "$upgrade_msi")" /qn "${sim_properties[@]}"; then
  pass "msiexec /i of the next version's package upgrades"
else
  fail "msiexec /i (upgrade): <<$(cat "$work/msiexec.out")>>"
fi
after=$(installed_products)
if [ "$(wc -w <<<"$after")" = 1 ] && [ "$after" != "$before" ]; then
  pass "one product is installed after the upgrade, the new one"
else
  fail "installed products before <<$before>>, after <<$after>>"
fi
check_running_and_answering "after the upgrade"
registered() {
  wine_tool reg query "$version_key" /v ConfigVersion | grep -q "REG_SZ *$upgrade_config_version\$"
}
if wait_until 30 registered; then
  pass "the service registered the package's configuration version $upgrade_config_version"
else
  fail "ConfigVersion: <<$(wine_tool reg query "$version_key" /v ConfigVersion)>>"
fi
[ ! -e "$(install_dir_unix)/ver.txt" ] && pass "ver.txt is gone once registered" ||
  fail "ver.txt is still there"

# The old product's removal takes the key; a package without a ver.txt writes back the
# version that was registered.
if msiexec /i "$(winpath "$upgrade2_msi")" /qn "${sim_properties[@]}"; then
  pass "msiexec /i of the package after it, without a ver.txt, upgrades"
else
  fail "msiexec /i (second upgrade): <<$(cat "$work/msiexec.out")>>"
fi
check_running_and_answering "after the second upgrade"
if registered; then
  pass "the registered configuration version $upgrade_config_version is kept"
else
  fail "ConfigVersion after the second upgrade: <<$(wine_tool reg query "$version_key" /v ConfigVersion)>>"
fi

# An older version's package does not install over a newer one.
newest=$(installed_products)
if msiexec /i "$(winpath "$msi")" /qn "${sim_properties[@]}"; then
  fail "the older package installed over the newer one"
else
  pass "msiexec /i of an older version's package fails"
fi
[ "$(installed_products)" = "$newest" ] && state_is RUNNING &&
  pass "the newer product stays installed and its service running" ||
  fail "after the refused downgrade: products <<$(installed_products)>>, state <<$(service_state)>>"

# --- uninstall of the running service ----------------------------------------------------
if msiexec /x "$(winpath "$upgrade2_msi")" /qn; then
  pass "msiexec /x ... /qn uninstalls"
else
  fail "msiexec /x: <<$(cat "$work/msiexec.out")>>"
fi
check_removed() {
  local when=$1
  wait_until 15 service_gone && pass "$when: the service is gone" ||
    fail "$when: the service is still there: <<$(service_state)>>"
  ! wine_tool reg query "$service_key" >/dev/null && pass "$when: its registry key is gone" ||
    fail "$when: the service key is still there"
  ! wine_tool reg query "$version_key" >/dev/null && pass "$when: the key $version_key is gone" ||
    fail "$when: the key $version_key is still there"
  [ -z "$(installed_products)" ] && pass "$when: no product is registered as installed" ||
    fail "$when: still installed: <<$(installed_products)>>"
}
check_removed "after the uninstall"
for f in antennactl.exe Conf.bin ver.txt; do
  [ ! -e "$dir/$f" ] && pass "$f is gone" || fail "$f is still in $dir"
done
# Wine's msiexec sends the stop and goes on at once, where Windows waits for the service to
# report that it stopped: here the executable of the service process that is still ending
# can be left behind. What Wine can show is that the package removes it once nothing runs
# it (next round). Until then, it goes by hand.
if [ -e "$dir/ZaltorMultiAntennaSvc.exe" ]; then
  echo "note: Wine's msiexec did not wait for the service to stop; its executable stayed"
  wait_until 15 no_service_process || fail "the service process did not end"
  rm -f "$dir/ZaltorMultiAntennaSvc.exe"
  rmdir "$dir" "$(dirname "$dir")" 2>/dev/null
fi

# --- uninstall of a stopped service: every file goes -------------------------------------
if msiexec /i "$(winpath "$msi")" /qn "${sim_properties[@]}" && wait_until 30 state_is RUNNING; then
  pass "the package installs again and the service runs"
else
  fail "the second install: <<$(cat "$work/msiexec.out")>> state <<$(service_state)>>"
fi
wine_tool sc stop "$name" >/dev/null
if wait_until 30 state_is STOPPED && wait_until 15 no_service_process; then
  pass "sc stop ends the service process"
else
  fail "after sc stop: <<$(service_state)>>"
fi
if msiexec /x "$(winpath "$msi")" /qn; then
  pass "msiexec /x ... /qn uninstalls the stopped service"
else
  fail "msiexec /x (stopped): <<$(cat "$work/msiexec.out")>>"
fi
check_removed "after the uninstall of the stopped service"
[ ! -e "$dir" ] && pass "the installation folder is gone with every file" ||
  fail "left in $dir: <<$(ls -A "$dir" 2>&1)>>"
[ ! -e "$(dirname "$dir")" ] && pass "the ZALTOR folder is gone too" ||
  fail "left: <<$(ls -A "$(dirname "$dir")" 2>&1)>>"

if [ "$failures" -ne 0 ]; then
  echo "$failures check(s) failed"
  exit 1
fi
echo "all checks passed"
