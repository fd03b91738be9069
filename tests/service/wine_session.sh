# Sourced by the Wine test scripts: keeps one Wine session of the prefix open while a test
# runs. Wine ends a session (and with it the service manager and every service it runs,
# which are system processes there) as soon as no ordinary process is left, and the next
# Wine program starts a new one, whose service manager starts the automatic services
# again. A test that watches a service across several Wine programs therefore holds the
# session with a waiting "cmd /c pause" whose input is a FIFO this shell keeps open.
#
#   wine_session_begin WINE_RUN DIR   start the holder (DIR: a scratch directory)
#   wine_session_end                  let it go and wait for it
wine_session_begin() {
  local wine_run=$1 dir=$2
  mkfifo "$dir/wine-session"
  env -u ZALTOR_PLATFORM -u ZALTOR_SIM_SCENARIO -u ZALTOR_RPC_ENDPOINT \
    "$wine_run" cmd /c pause <"$dir/wine-session" >/dev/null 2>&1 &
  wine_session_pid=$!
  exec 8>"$dir/wine-session"
  # The session's service manager starts Wine's own services first; a program that calls
  # the service dispatcher meanwhile can be taken for one of them. A query that the
  # manager answers, a moment after, finds it idle.
  "$wine_run" sc query PlugPlay >/dev/null 2>&1
  sleep 1
}

wine_session_end() {
  if [ -n "${wine_session_pid:-}" ]; then
    # The key that "pause" waits for; it does not end at the end of its input. (A holder
    # that is gone already must not end this shell with SIGPIPE.)
    trap '' PIPE
    { echo >&8; } 2>/dev/null || true
    exec 8>&-
    wait "$wine_session_pid" 2>/dev/null
    wine_session_pid=
  fi
}
