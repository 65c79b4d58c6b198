#!/usr/bin/env bash
# Times one whole `tidewatch stop PORT` beside `fuser -k PORT/tcp` on the same machine state: every
# run stops a real listener on a loopback port, started afresh before it and not timed.
# Usage: bench/compare_stop.sh [path/to/tidewatch]   (builds the release preset when omitted)
# Set WORLD=0 to measure the machine as it is instead of the generated table.
set -euo pipefail
cd "$(dirname "$0")/.."
source bench/whole_process.sh
tidewatch=$(tidewatch_executable "${1:-}")
command -v fuser >/dev/null || { echo "compare_stop: fuser is missing (Debian package psmisc)" >&2; exit 1; }

work=$(mktemp -d /tmp/tidewatch-stop-bench.XXXXXX)
stop_all() {
  [[ -z ${keeper:-} ]] || { kill -TERM "$keeper" 2>/dev/null; wait "$keeper" 2>/dev/null || true; }
  [[ -z ${world:-} ]] || { kill -TERM "$world" 2>/dev/null; wait "$world" 2>/dev/null || true; }
  rm -rf "$work"
}
trap stop_all EXIT

start_world

# The keeper starts one listener per request and answers once it listens. It is the listeners'
# parent and reaps them, so the runs leave no zombies behind on a machine whose init doesn't, and
# its process group ends with it, listener and all. A listener binds as soon as the one before it
# is gone; one that can't bind within five seconds means the last command left its listener alive.
port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
mkfifo "$work/request" "$work/reply"
python3 - "$port" "$work/request" "$work/reply" <<'PY' &
import os, signal, socket, sys, time

port, requests, replies = int(sys.argv[1]), sys.argv[2], sys.argv[3]
os.setpgrp()
signal.signal(signal.SIGCHLD, signal.SIG_IGN)


def end(*_):
    signal.signal(signal.SIGTERM, signal.SIG_IGN)
    os.killpg(0, signal.SIGTERM)
    os._exit(0)


signal.signal(signal.SIGTERM, end)
signal.signal(signal.SIGINT, end)


def listen(ready):
    server = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
    server.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    deadline = time.monotonic() + 5
    while True:
        try:
            server.bind(("127.0.0.1", port))
            break
        except OSError:
            if time.monotonic() > deadline:
                os._exit(1)
            time.sleep(0.002)
    server.listen()
    os.write(ready, b"1")
    os.close(ready)
    while True:
        signal.pause()


while True:
    with open(requests) as request:
        request.read()
    ready_r, ready_w = os.pipe()
    if os.fork() == 0:
        for number in (signal.SIGCHLD, signal.SIGTERM, signal.SIGINT):
            signal.signal(number, signal.SIG_DFL)
        os.close(ready_r)
        listen(ready_w)
    os.close(ready_w)
    listening = os.read(ready_r, 1) == b"1"
    os.close(ready_r)
    with open(replies, "w") as reply:
        reply.write("listening\n" if listening else "port still taken\n")
PY
keeper=$!

# hyperfine's --prepare: a fresh listener on $port, returning once it listens.
cat >"$work/fresh-listener" <<SH
#!/bin/sh
echo >"$work/request"
read -r answer <"$work/reply"
[ "\$answer" = listening ] || { echo "fresh-listener: port $port: \$answer" >&2; exit 1; }
SH
chmod +x "$work/fresh-listener"

processes=$(ls /proc | grep -c '^[0-9]')
descriptors=$(ls /proc/[0-9]*/fd 2>/dev/null | grep -c '^[0-9]' || true)
echo "machine: $processes processes, $descriptors open descriptors; listener on 127.0.0.1:$port"

# Each command once beforehand, so one that can't stop the listener says why in its own words.
for command in "$tidewatch stop $port" "fuser -k $port/tcp"; do
  "$work/fresh-listener"
  said=$($command 2>&1) || { echo "compare_stop: '$command' failed: $said" >&2; exit 1; }
done

hyperfine --warmup 3 --runs "${RUNS:-30}" -N --export-json /tmp/tidewatch-stop-bench.json \
  --prepare "$work/fresh-listener" \
  -n tidewatch "$tidewatch stop $port" -n fuser "fuser -k $port/tcp" >/dev/null

python3 - "$port" <<'PY'
import json, sys
port = sys.argv[1]
runs = {r["command"]: r for r in json.load(open("/tmp/tidewatch-stop-bench.json"))["results"]}
tw, fuser = runs["tidewatch"], runs["fuser"]
for name, r in ((f"tidewatch stop {port}", tw), (f"fuser -k {port}/tcp", fuser)):
    print(f"{name:30s} mean {r['mean']*1000:7.2f} ms  median {r['median']*1000:7.2f} ms  (±{r['stddev']*1000:.2f})")
print(f"tidewatch / fuser -k = {tw['mean']/fuser['mean']:.2f}x")
PY
