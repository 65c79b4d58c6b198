#!/usr/bin/env bash
# Builds the libFuzzer targets (preset "fuzz": clang, ASan + UBSan) and runs each for a fixed
# time over its committed seed corpus. A crash, a leak or a sanitizer report fails the run.
# Usage: scripts/fuzz.sh [seconds-per-target]   (default 20)
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-20}
build=build/fuzz
fuzzers=(envelope_decoder provider_fields_decoder settings_editor)

cmake --preset fuzz >/dev/null
cmake --build "$build" -j2 --target "${fuzzers[@]/#/fuzz_}"

artifacts="$build/fuzz-artifacts"
mkdir -p "$artifacts"
for name in "${fuzzers[@]}"; do
  # New inputs go to a scratch corpus; the committed seeds stay as they are.
  scratch=$(mktemp -d)
  echo "== fuzz_$name for ${seconds}s"
  if ! "$build/hooks/fuzz_$name" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
       -artifact_prefix="$artifacts/$name-" -print_final_stats=1 "$scratch" "hooks/fuzz/corpus/$name"; then
    rm -rf "$scratch"
    echo "fuzz_$name failed; the input is in $artifacts" >&2
    exit 1
  fi
  rm -rf "$scratch"
done
echo "fuzzing passed"
