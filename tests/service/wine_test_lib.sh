# Sourced by the Wine test scripts: the pass and fail lines they count, and the helpers
# they share. The sourcing script sets `wine_run` (scripts/wine-run.sh) first, and `name`
# (the service's name) before it asks about the service.

failures=0
fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}
pass() { echo "ok: $*"; }

# A Unix path as Wine's Z: drive sees it.
winpath() { printf 'Z:%s' "${1//\//\\}"; }

# Wine's own tools, with their CR LF line ends removed. No ZALTOR_* settings reach them, so
# that the service manager (started by the first of them) has none either: an installed
# service gets its settings only from what was registered with it.
wine_tool() {
  env -u ZALTOR_PLATFORM -u ZALTOR_SIM_SCENARIO -u ZALTOR_RPC_ENDPOINT \
    "$wine_run" "$@" 2>/dev/null | tr -d '\r'
}

service_state() { wine_tool sc query "$name" | sed -n 's/^ *STATE *: *[0-9]* *\([A-Z_]*\).*/\1/p'; }
state_is() { [ "$(service_state)" = "$1" ]; }
service_gone() { [ -z "$(wine_tool sc query "$name")" ]; }

# Polls `check` (a command) up to `seconds`, once a second; true when it succeeded.
wait_until() {
  local seconds=$1
  shift
  for ((i = 0; i < seconds; i++)); do
    "$@" && return 0
    sleep 1
  done
  "$@"
}
