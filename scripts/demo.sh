#!/usr/bin/env bash
# The main job for a fresh Debian 12 machine: installs what is needed,
# builds, and runs the demo.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
bash scripts/build.sh
BUILD_DIR=${TELVIX_BUILD_DIR:-build}
exec "$BUILD_DIR/tools/telvix-demo"
