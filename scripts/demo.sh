#!/usr/bin/env bash
# The main job for a fresh Debian 12 machine: installs what is needed,
# builds, and runs the guided tour (telvix-cli against the bundled PBX
# simulator). Ends by itself; exit code 0 when the tour went through.
#   bash scripts/demo.sh --gui   builds the switchboard example instead and
#                                starts it against the simulator on this desktop.
set -euo pipefail
cd "$(dirname "$0")/.."

if [ "${1:-}" = "--gui" ]; then
  shift
  bash scripts/install-deps.sh
  TELVIX_BUILD_TARGETS="telvix-pbx-sim telvix-switchboard" bash scripts/build.sh
  exec bash scripts/switchboard.sh "${TELVIX_BUILD_DIR:-build}" "$@"
fi

bash scripts/install-deps.sh
bash scripts/build.sh
bash scripts/tour.sh "${TELVIX_BUILD_DIR:-build}"
