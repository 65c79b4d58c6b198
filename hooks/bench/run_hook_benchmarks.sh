#!/usr/bin/env bash
# Whole-process cost of the hook relay beside /bin/true and `python3 -c pass` (hyperfine, as
# ratios), then a burst of relay processes from several senders into one live server.
# Usage: hooks/bench/run_hook_benchmarks.sh [build-dir] [senders] [relays-per-sender]
set -euo pipefail
cd "$(dirname "$0")/../.."
build=${1:-build/hooks-bench}
senders=${2:-4}
relays=${3:-750}

cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTIDEWATCH_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" -j2 --target tidewatch hook_server_burst
tidewatch=$PWD/$build/app/tidewatch
burst=$PWD/$build/hooks/hook_server_burst

home=$(mktemp -d /tmp/twbench-XXXXXX)
mkdir -p "$home/code/harbour/.git"
printf '{"session_id":"bench","hook_event_name":"Stop","cwd":"%s/code/harbour/src","prompt":"%s"}' \
  "$home" "$(head -c 2000 /dev/zero | tr '\0' 'p')" > "$home/hook.json"
export HOME=$home

"$burst" serve "$home" & server=$!
trap 'kill "$server" 2>/dev/null; wait "$server" 2>/dev/null; rm -rf "$home"' EXIT
for _ in $(seq 100); do [ -S "$home/.local/state/tidewatch/runtime/agent-events.sock" ] && break; sleep 0.05; done
[ -S "$home/.local/state/tidewatch/runtime/agent-events.sock" ] || { echo "the server did not start" >&2; exit 1; }

echo "== $(nproc) cores, $(uname -sr)"
echo "== whole processes, no shell (the relay sends a connection test to the live server)"
hyperfine -N --warmup 100 --runs 2000 --export-json "$home/direct.json" \
  /bin/true "$tidewatch agent-event --provider claude --protocol 1 --test"
hyperfine -N --warmup 5 --runs 100 --export-json "$home/python.json" "python3 -c pass"
echo "== with a hook document on standard input (shell start-up subtracted by hyperfine)"
hyperfine --warmup 100 --runs 1000 --export-json "$home/stdin.json" \
  "/bin/true < $home/hook.json" "$tidewatch agent-event --provider claude --protocol 1 < $home/hook.json"

python3 - "$home/direct.json" "$home/stdin.json" "$home/python.json" <<'PY'
import json, sys
direct = {r["command"]: r for r in json.load(open(sys.argv[1]))["results"]}
stdin = [r for r in json.load(open(sys.argv[2]))["results"]]
true, python = direct["/bin/true"], json.load(open(sys.argv[3]))["results"][0]
relay = next(r for c, r in direct.items() if "--test" in c)
ms = lambda r: f'{r["mean"]*1e3:.3f} ms (median {r["median"]*1e3:.3f})'
print(f"/bin/true            {ms(true)}")
print(f"python3 -c pass      {ms(python)}")
print(f"relay --test         {ms(relay)}")
print(f"relay / true         {relay['mean']/true['mean']:.2f}x (medians {relay['median']/true['median']:.2f}x)")
print(f"relay / python3      {relay['mean']/python['mean']:.3f}x")
print(f"relay with input / true with input  {stdin[1]['mean']/stdin[0]['mean']:.2f}x "
      f"({stdin[1]['mean']*1e3:.3f} ms vs {stdin[0]['mean']*1e3:.3f} ms)")
PY

kill "$server"; wait "$server" || true
echo "== burst: $senders senders x $relays relays into one server"
"$burst" burst "$tidewatch" "$senders" "$relays"
