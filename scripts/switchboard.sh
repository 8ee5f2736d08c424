#!/usr/bin/env bash
# Starts the bundled PBX simulator on a free port and the switchboard example
# (telvix-switchboard) against it, on the current desktop. The login dialog
# comes filled in for the simulator: press "Log in". Closing the window ends
# both. Needs a build with the example (bash scripts/demo.sh --gui makes one).
#   bash scripts/switchboard.sh [BUILD_DIR] [--many]
#   --many: 10,000 colleagues instead of ten, to try the search field.
set -euo pipefail
cd "$(dirname "$0")/.."

BUILD_DIR=${TELVIX_BUILD_DIR:-build}
MANY=""
for arg in "$@"; do
  case "$arg" in
    --many) MANY=1 ;;
    *) BUILD_DIR=$arg ;;
  esac
done
SIM="$BUILD_DIR/tools/telvix-pbx-sim"
APP="$BUILD_DIR/examples/switchboard/telvix-switchboard"
for program in "$SIM" "$APP"; do
  [ -x "$program" ] || { echo "switchboard: $program is missing; build first (bash scripts/demo.sh --gui)" >&2; exit 1; }
done
if [ -z "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; then
  echo "switchboard: no desktop (neither DISPLAY nor WAYLAND_DISPLAY is set)." >&2
  echo "  Run it from a desktop session, or on a virtual screen: xvfb-run -a bash scripts/switchboard.sh" >&2
  exit 1
fi

. scripts/simulator.sh

directory=()
if [ -n "$MANY" ]; then
  # Ten thousand colleagues, extensions 1000 to 10999 (password = extension).
  python3 - "$work/many.json" <<'PY'
import json, sys
first = ["Anna", "Bruno", "Chiara", "David", "Elena", "Farid", "Greta", "Hiro", "Ines", "Jonas"]
last = ["Rossi", "Keller", "Lambert", "Okafor", "Novak", "Haddad", "Lindqvist", "Tanaka", "Moreau", "Berg"]
units = ["Sales", "Support", "Finance", "Engineering", "Reception"]
ext = [{"exten": str(1000 + i), "firstName": first[i % 10], "lastName": f"{last[(i // 10) % 10]} {i // 100}",
        "unit": units[i % 5]} for i in range(10000)]
json.dump({"extensions": ext}, open(sys.argv[1], "w"))
PY
  directory=(--directory "$work/many.json")
fi

# Desk phones let the window answer, hold and transfer; a called person
# answers after 8 s when nobody clicks first.
start_simulator "$SIM" "$work/sim.log" --desk-phones --answer-delay 8000 --call-duration 20000 \
  --probe-interval 0 "${directory[@]}" --scenario tools/pbxsim/scenarios/switchboard.json ||
  { echo "switchboard: no simulator" >&2; exit 1; }

echo "switchboard: telvix-pbx-sim listens on 127.0.0.1:$port; log in as 1000 (password 1000)."
echo "  A customer calls about five seconds after the login; colleagues' lamps change as they take calls."
"$APP" --server "127.0.0.1:$port" 2>"$work/app.log" || {
  status=$?
  echo "switchboard: telvix-switchboard ended with code $status" >&2
  tail -20 "$work/app.log" >&2
  exit "$status"
}
echo "switchboard: what the simulator did:"
sed 's/^/   /' "$work/sim.log"
