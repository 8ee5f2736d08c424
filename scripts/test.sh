#!/usr/bin/env bash
# One command for a fresh Debian 12 machine: installs every dependency,
# builds, and runs the whole test suite (unit and long tests).
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
bash scripts/build.sh
BUILD_DIR=${TELVIX_BUILD_DIR:-build}
# Long tests wait on real 15-45 s timers; running them beside the unit tests
# keeps the whole run short on two cores. The soak (minutes of sessions) runs
# on demand: ctest -L soak; its short form belongs to the sanitizer pass.
ctest --test-dir "$BUILD_DIR" --output-on-failure -j"$(( $(nproc) * 2 ))" --timeout 600 -LE 'soak|leak'
