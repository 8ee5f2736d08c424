#!/usr/bin/env bash
# Installs every Debian package the build, the tests, the benchmarks and the demo need.
# Idempotent: packages already present are left alone.
set -euo pipefail

PACKAGES=(
  build-essential cmake ninja-build ccache mold pkg-config git
  qtbase5-dev libqt5sql5-sqlite
  libgloox-dev libgsm1-dev libgsm-tools zlib1g-dev
  libspdlog-dev libfmt-dev
  libpugixml-dev libbenchmark-dev
  sox libsox-fmt-base
  prosody lua-unbound
  openssl ca-certificates valgrind
  python3 gcovr
  clang-14 libclang-rt-14-dev
  libqt5websockets5-dev
  xvfb xauth chromium ffmpeg
)

missing=()
for p in "${PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "install-deps: all packages present"
  exit 0
fi

SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -q
$SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"
