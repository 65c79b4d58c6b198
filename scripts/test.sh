#!/usr/bin/env bash
# Sets up, builds and runs every test of one preset (default: release).
# Usage: scripts/test.sh [release|debug|asan]
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${1:-release}
./scripts/setup.sh
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
ctest --preset "$preset"
