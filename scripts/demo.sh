#!/usr/bin/env bash
# The main job for a fresh Debian 12 machine: installs what is needed,
# builds, and runs the guided tour (telvix-cli against the bundled PBX
# simulator). Ends by itself; exit code 0 when the tour went through.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
bash scripts/build.sh
bash scripts/tour.sh "${TELVIX_BUILD_DIR:-build}"
