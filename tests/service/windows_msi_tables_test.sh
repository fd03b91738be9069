#!/usr/bin/env bash
# The installer package's tables as Windows Installer reads them (msiinfo from msitools),
# without running it: what real Windows does with them beyond what Wine's msiexec shows
# (the stop that waits, the 64-bit registry view, no custom action), and the rows the
# build fills in after wixl.
#
# Usage: windows_msi_tables_test.sh MSI [CONFIG_VERSION]
set -u
msi=$1
config_version=${2:-}
failures=0
fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}
pass() { echo "ok: $*"; }
# The rows of one table, tab-separated, without the three header lines.
rows() { msiinfo export "$msi" "$1" 2>/dev/null | tail -n +4 | tr -d '\r'; }
expect_rows() {
  local table=$1 expected=$2 what=$3
  if [ "$(rows "$table" | sort)" = "$(printf '%s\n' "$expected" | sort)" ]; then
    pass "$what"
  else
    fail "$what: the $table table is <<$(rows "$table")>>"
  fi
}
T=$'\t'

msiinfo suminfo "$msi" | grep -q '^Template: x64;1033$' && pass "a 64-bit package" ||
  fail "summary: <<$(msiinfo suminfo "$msi")>>"
expect_rows Directory "INSTALLDIR${T}ZaltorFolder${T}MultiAntenna
ZaltorFolder${T}ProgramFiles64Folder${T}ZALTOR
ProgramFiles64Folder${T}TARGETDIR${T}.
TARGETDIR${T}${T}SourceDir" "the files go to %ProgramFiles%\\ZALTOR\\MultiAntenna"
files=$(rows File | cut -f3 | sort | tr '\n' ' ')
if [ -n "$config_version" ]; then
  want="Conf.bin ZaltorMultiAntennaSvc.exe antennactl.exe ver.txt "
else
  want="Conf.bin ZaltorMultiAntennaSvc.exe antennactl.exe "
fi
[ "$files" = "$want" ] && pass "the files: $files" || fail "the files are <<$files>>"
bad=$(rows Component | awk -F'\t' '!(int($4 / 256) % 2) { print $1 }')
[ -z "$bad" ] && pass "every component is 64-bit (the registry's 64-bit view)" ||
  fail "32-bit components: $bad"

expect_rows ServiceInstall "ZaltorService${T}ZaltorMultiAntennaSvc${T}ZALTOR Multi Antenna Service${T}16${T}2${T}1${T}${T}${T}${T}${T}${T}ServiceExecutable${T}Service for management of multi antenna system. If this service is stopped, Zaltor MultiAntenna App will stop working." \
  "the service as -install registers it: own process, automatic start, normal errors, LocalSystem, the description"
# 1 start at install, 2 stop at install, 32 stop at uninstall, 128 delete at uninstall;
# Wait 1: Windows waits for the service to reach the state.
expect_rows ServiceControl "ZaltorServiceControl${T}ZaltorMultiAntennaSvc${T}163${T}${T}1${T}ServiceExecutable" \
  "started at install, stopped at install and uninstall, deleted at uninstall, waited for"
# The Registry table without its generated row keys.
registry=$(rows Registry | cut -f2- | sort)
want_registry=$(printf '%s\n' \
  "2${T}SOFTWARE\\ZALTOR\\ZALTOR MultiAntenna${T}*${T}${T}VersionKey" \
  "2${T}SOFTWARE\\ZALTOR\\ZALTOR MultiAntenna${T}ConfigVersion${T}[ZALTOR_REGISTERED_CONFIG_VERSION]${T}KeptConfigVersion" \
  "2${T}SYSTEM\\CurrentControlSet\\Services\\ZaltorMultiAntennaSvc${T}Environment${T}[~]ZALTOR_PLATFORM=[ZALTOR_PLATFORM]${T}EnvironmentPlatform" \
  "2${T}SYSTEM\\CurrentControlSet\\Services\\ZaltorMultiAntennaSvc${T}Environment${T}[~]ZALTOR_SIM_SCENARIO=[ZALTOR_SIM_SCENARIO]${T}EnvironmentScenario" \
  "2${T}SYSTEM\\CurrentControlSet\\Services\\ZaltorMultiAntennaSvc${T}Environment${T}[~]ZALTOR_RPC_ENDPOINT=[ZALTOR_RPC_ENDPOINT]${T}EnvironmentEndpoint" |
  sort)
[ "$registry" = "$want_registry" ] &&
  pass "the version key (made and removed with the product) and the Environment lines" ||
  fail "the Registry table is <<$registry>>"
conditions=$(rows Component | awk -F'\t' '$5 != "" { print $1 "=" $5 }' | sort | tr '\n' ' ')
[ "$conditions" = "EnvironmentEndpoint=ZALTOR_RPC_ENDPOINT EnvironmentPlatform=ZALTOR_PLATFORM EnvironmentScenario=ZALTOR_SIM_SCENARIO KeptConfigVersion=ZALTOR_REGISTERED_CONFIG_VERSION " ] &&
  pass "each Environment line and the kept version only when its property is set" ||
  fail "component conditions: <<$conditions>>"
secure=$(rows Property | awk -F'\t' '$1 == "SecureCustomProperties" { print $2 }')
missing=
for p in ZALTOR_PLATFORM ZALTOR_SIM_SCENARIO ZALTOR_RPC_ENDPOINT ZALTOR_REGISTERED_CONFIG_VERSION \
  WIX_UPGRADE_DETECTED WIX_DOWNGRADE_DETECTED; do
  [[ ";$secure;" == *";$p;"* ]] || missing="$missing $p"
done
[ -z "$missing" ] && pass "the properties are secure (they reach a managed installation's elevated part)" ||
  fail "not secure:$missing (SecureCustomProperties <<$secure>>)"
rows Upgrade | grep -q "^{6F1C2E5A-8B3D-4C71-9E0A-2D4B6C8E0F13}" &&
  rows LaunchCondition | grep -q '^NOT WIX_DOWNGRADE_DETECTED' &&
  rows InstallExecuteSequence | grep -q '^RemoveExistingProducts' &&
  pass "a major upgrade under the fixed upgrade code; no downgrade" ||
  fail "upgrade rows: <<$(rows Upgrade)>> <<$(rows LaunchCondition)>>"
expect_rows CreateFolder "INSTALLDIR${T}VersionKey
ZaltorFolder${T}VersionKey" "the product's folders are its own"
expect_rows RemoveFile "RemoveZaltorFolder${T}VersionKey${T}${T}ZaltorFolder${T}2" \
  "the maker's folder goes at uninstall"
[ -z "$(rows CustomAction)" ] && pass "no custom action" || fail "custom actions: <<$(rows CustomAction)>>"

if [ "$failures" -ne 0 ]; then
  echo "$failures check(s) failed"
  exit 1
fi
echo "all checks passed"
