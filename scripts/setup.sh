#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the benchmarks need, when missing.
set -euo pipefail

packages=(
  cmake ninja-build g++ pkg-config
  libgtest-dev libgmock-dev libbenchmark-dev
  nlohmann-json3-dev libutf8proc-dev
  clang libclang-rt-14-dev
  iproute2 lsof procps hyperfine time python3
  # The application's model (QtCore; no display needed to test it).
  qt6-base-dev
  # Real Debian software for the live tests: a JDK server, the packaged Redis and PostgreSQL.
  openjdk-17-jdk-headless redis-server postgresql-15
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

if ((${#missing[@]})); then
  echo "setup: installing ${missing[*]}"
  sudo_cmd=()
  [[ $(id -u) -eq 0 ]] || sudo_cmd=(sudo)
  export DEBIAN_FRONTEND=noninteractive
  "${sudo_cmd[@]}" apt-get update -qq
  "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
