#!/usr/bin/env bash
# Times one whole `tidewatch scan --json` beside `ss -tlnp` and `lsof` on the same machine state,
# and measures the scan's peak memory.
# Usage: bench/compare_scan.sh [path/to/tidewatch]   (builds the release preset when omitted)
# Set WORLD=0 to measure the machine as it is instead of the generated table.
set -euo pipefail
cd "$(dirname "$0")/.."
source bench/whole_process.sh
tidewatch=$(tidewatch_executable "${1:-}")
trap '[[ -z ${world:-} ]] || { kill -TERM $world 2>/dev/null; wait $world 2>/dev/null || true; }' EXIT
start_world

processes=$(ls /proc | grep -c '^[0-9]')
descriptors=$(ls /proc/[0-9]*/fd 2>/dev/null | grep -c '^[0-9]' || true)
echo "machine: $processes processes, $descriptors open descriptors"

hyperfine --warmup 3 --runs "${RUNS:-30}" -N --export-json /tmp/tidewatch-scan-bench.json \
  "$tidewatch scan --json" "ss -tlnp" "lsof -nP -iTCP -sTCP:LISTEN" >/dev/null

python3 - <<'PY'
import json
runs = json.load(open("/tmp/tidewatch-scan-bench.json"))["results"]
mean = {r["command"].split()[0].split("/")[-1]: r for r in runs}
tw, ss, lsof = mean["tidewatch"], mean["ss"], mean["lsof"]
for name, r in (("tidewatch scan --json", tw), ("ss -tlnp", ss), ("lsof -nP -iTCP -sTCP:LISTEN", lsof)):
    print(f"{name:30s} mean {r['mean']*1000:7.2f} ms  median {r['median']*1000:7.2f} ms  (±{r['stddev']*1000:.2f})")
print(f"tidewatch / ss -tlnp = {tw['mean']/ss['mean']:.2f}x   lsof / tidewatch = {lsof['mean']/tw['mean']:.1f}x")
PY
# GNU time reports the scan's own high-water mark (a fork from python would count python's).
/usr/bin/time -f "tidewatch peak memory (max RSS): %M KiB" "$tidewatch" scan --json >/dev/null
