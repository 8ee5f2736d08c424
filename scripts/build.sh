#!/usr/bin/env bash
# Configures and builds the project into ./build (Ninja, ccache).
set -euo pipefail
cd "$(dirname "$0")/.."

BUILD_DIR=${TELVIX_BUILD_DIR:-build}
BUILD_TYPE=${TELVIX_BUILD_TYPE:-RelWithDebInfo}
export CCACHE_DIR=${CCACHE_DIR:-$HOME/.cache/telvix-ccache}
mkdir -p "$CCACHE_DIR"
# Paths relative to the checkout, so that clones and worktrees share the cache.
export CCACHE_BASEDIR=${CCACHE_BASEDIR:-$PWD}
export CCACHE_NOHASHDIR=${CCACHE_NOHASHDIR:-true}

cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE="$BUILD_TYPE" "$@"
# TELVIX_BUILD_TARGETS="a b" builds only those targets (and what they need).
targets=()
for t in ${TELVIX_BUILD_TARGETS:-}; do targets+=(--target "$t"); done
cmake --build "$BUILD_DIR" -j"$(nproc)" "${targets[@]}"
