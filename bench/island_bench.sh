#!/usr/bin/env bash
# What the island costs while it shows, on a private X desktop: the application's CPU share and
# resident memory over a stretch of seconds in three states, with agent tracking running (the
# panel closed): no agent (the island hidden), one Claude Code session at work (the matrix
# breathing) and the same session waiting (the island at rest).
#   bench/island_bench.sh [folder of the tidewatch executable] [seconds per state]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bin=${1:-$root/build/release/app}
seconds=${2:-60}
source "$root/app/gui/tests/desktop_session.sh"
trap 'kill ${app:-} 2>/dev/null; [[ -n ${agent:-} ]] && pkill -P "$agent"; kill ${agent:-} 2>/dev/null; session_stop' EXIT

cpu_ticks() { awk '{ print $14 + $15 }' "/proc/$1/stat"; }
rss_mib() { awk '/VmRSS/ { printf "%.1f", $2 / 1024 }' "/proc/$1/status"; }
ticks_per_second=$(getconf CLK_TCK)
measure() {
  local pid=$1 label=$2 before after
  before=$(cpu_ticks "$pid")
  sleep "$seconds"
  after=$(cpu_ticks "$pid")
  awk -v t=$((after - before)) -v hz="$ticks_per_second" -v s="$seconds" -v label="$label" -v rss="$(rss_mib "$pid")" \
    'BEGIN { printf "%-34s %5d ticks over %d s = %.2f %% of one core, %s MiB resident\n", label, t, s, 100 * t / hz / s, rss }'
}

session_start
mkdir -p "$XDG_CONFIG_HOME/tidewatch"
echo '{"launchAtLoginOfferCompleted": true, "tidewatchOnboardingComplete": true, "display.showAgentActivity": true, "agentConnections.claude.configured": true}' \
  >"$XDG_CONFIG_HOME/tidewatch/defaults.json"
"$bin/tidewatch" >/dev/null 2>&1 &
app=$!
wait_for 10 tray_icon_geometry
pid=$(pgrep -n -x tidewatch-app)
sleep 2
measure "$pid" "tracking, no agent, island hidden"

mkdir -p "$session_dir/bin" && cp /bin/bash "$session_dir/bin/claude"
relay() {
  printf '{"session_id":"bench","hook_event_name":"%s","cwd":"%s"}' "$1" "$HOME" |
    "$bin/tidewatch" agent-event --provider claude --protocol 1
}
export -f relay
export bin
"$session_dir/bin/claude" -c 'relay UserPromptSubmit; sleep 100000' >/dev/null 2>&1 &
agent=$!
wait_for 10 xdotool search --onlyvisible --name '^Tidewatch island$'
sleep 2
measure "$pid" "one session at work, matrix moving"
"$session_dir/bin/claude" -c 'relay Stop' >/dev/null 2>&1
sleep 2
measure "$pid" "the session waiting, island at rest"
