# Sourced by the scripts that run the bundled PBX simulator next to a client.
#   start_simulator PROGRAM LOG ARGS...  starts it with --port 0 and ARGS, its
#       output in LOG; sets sim_pid and port (the free port it picked), or
#       prints LOG and returns 1 when it does not come up.
#   stop_simulator                       ends it, if it runs.
# Also makes the scratch directory $work; both go when the script exits.
sim_pid=""
port=""
work=$(mktemp -d)
trap 'stop_simulator; rm -rf "$work"' EXIT

start_simulator() {
  local program=$1 log=$2
  shift 2
  "$program" --port 0 "$@" >"$log" 2>&1 &
  sim_pid=$!
  for _ in $(seq 200); do
    port=$(sed -n 's/.*listening on 127\.0\.0\.1:\([0-9][0-9]*\).*/\1/p' "$log")
    [ -n "$port" ] && return 0
    kill -0 "$sim_pid" 2>/dev/null || break
    sleep 0.05
  done
  echo "the simulator did not start:" >&2
  cat "$log" >&2
  return 1
}

stop_simulator() {
  if [ -n "$sim_pid" ]; then
    kill "$sim_pid" 2>/dev/null || true
    wait "$sim_pid" 2>/dev/null || true
    sim_pid=""
  fi
}
