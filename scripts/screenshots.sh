#!/usr/bin/env bash
# Renders the application as a user sees it into docs/screenshots/, on a private X desktop with
# real listeners and processes named like coding agents: the first-run surfaces, the ports pane,
# an action menu, a confirmation, a notice, an empty state, the agents pane, the settings (and
# their end, with an update check's answer from a feed served here), the
# ports pane at 200% scale, the ordinary window of a desktop without a tray, the island on the
# desktop, and the island's states and the tray's counts drawn by the test helper.
#   scripts/screenshots.sh [folder of the tidewatch executable]   (default: build/release/app)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bin=${1:-$root/build/release/app}
out=$root/docs/screenshots
source "$root/app/gui/tests/desktop_session.sh"
mkdir -p "$out"
rm -f "$out"/*.png
pids=()
trap 'kill ${pids[*]:-} ${app:-} 2>/dev/null; session_stop' EXIT

settings() {
  mkdir -p "$XDG_CONFIG_HOME/tidewatch"
  echo "$1" >"$XDG_CONFIG_HOME/tidewatch/defaults.json"
}
onboarded='"launchAtLoginOfferCompleted": true, "tidewatchOnboardingComplete": true, "display.defaultFilter": "all"'

start_app() {
  "$bin/tidewatch" >>"$session_dir/app.log" 2>&1 &
  app=$!
  wait_for 10 tray_icon_geometry
}
open_panel() {
  read -r ix iy iw ih < <(tray_icon_geometry)
  xdotool mousemove $((ix + iw / 2)) $((iy + ih / 2)) click 1
  wait_for 5 panel_geometry
  sleep 1.2  # the fade and the first scans
}
# The panel with a margin around it.
shoot() {
  sleep 0.4
  read -r px py pw ph < <(panel_geometry)
  local width=$((pw + 40)) height=$((ph + 40))
  import -window root -crop ${width}x${height}+$((px - 20))+$((py - 20)) +repage "$out/$1.png"
}
stop_app() {
  kill -TERM "$app"
  wait "$app" || true
}
keys() { xdotool key --delay 80 "$@"; }

# A small world: two web servers, a pool-less Python one, and processes named like agents.
world=$(mktemp -d)
# The update feed the settings read: one newer version, served by the web server on 8000.
cat >"$world/appcast.xml" <<'FEED'
<?xml version="1.0"?>
<rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle">
  <channel><title>Tidewatch</title>
    <item><title>Tidewatch 0.2.0</title><sparkle:shortVersionString>0.2.0</sparkle:shortVersionString>
      <link>https://tidewatch.dev/releases/0.2.0</link></item>
  </channel>
</rss>
FEED
for port in 5173 8000; do
  python3 -m http.server "$port" --bind 127.0.0.1 --directory "$world" >/dev/null 2>&1 &
  pids+=($!)
done
mkdir -p "$world/bin"
cp /bin/sleep "$world/bin/claude"
cp /bin/sleep "$world/bin/codex"
(cd "$world" && exec "$world/bin/claude" 600) &
claude=$!
pids+=($claude)
(cd "$world" && exec "$world/bin/codex" 600) &
codex=$!
pids+=($codex)

session_start
export TIDEWATCH_UPDATE_FEED=http://127.0.0.1:8000/appcast.xml
settings '{}'
start_app && open_panel && shoot panel-offer && stop_app
settings '{"launchAtLoginOfferCompleted": true}'
start_app && open_panel && shoot panel-walkthrough && stop_app

settings "{$onboarded, \"display.showProject\": true, \"display.showCPU\": true, \"display.showMemory\": true, \"display.showPower\": true, \"agentConnections.claude.configured\": true}"
start_app && open_panel
shoot panel-ports
keys Down Return
shoot panel-action-menu
keys Escape k
shoot panel-confirmation
keys Escape
read -r px py pw ph < <(panel_geometry)
click_at() { xdotool mousemove $((px + $1)) $((py + $2)) click 1; }
click_at 300 64  # the search field
xdotool type --delay 40 "zzz-no-such"
shoot panel-empty-state
keys ctrl+a BackSpace
kill "$codex"  # one agent finishes
sleep 1.5
# Claude Code's hooks, through the relay: one session at work, one that has ended.
hook() {
  printf '{"session_id":"%s","hook_event_name":"%s","cwd":"%s"}' "$1" "$2" "$world" |
    (cd "$world" && "$bin/tidewatch" agent-event --provider claude --protocol 1)
}
hook review-api UserPromptSubmit
hook fix-tests UserPromptSubmit
hook fix-tests SessionEnd
sleep 0.5
click_at 97 26  # the Agents pane
click_at 300 195  # open the first session
shoot panel-agents
# A stop asked for after the agent has gone leaves a notice: the second session is the process.
click_at 300 195
click_at 300 248
kill "$claude"
sleep 0.3
click_at 226 308  # its Stop
sleep 1.5
shoot panel-notice
click_at 668 26  # settings
shoot panel-settings
# Scrolled to its end: the update check's answer.
xdotool mousemove $((px + 350)) $((py + 300)) click --repeat 12 --delay 20 5
shoot panel-settings-updates
stop_app
session_stop

# Twice the scale, on a screen twice as large.
SESSION_SCREEN=3840x2160 session_start
export QT_SCALE_FACTOR=2
settings "{$onboarded, \"display.showProject\": true}"
start_app && open_panel && shoot panel-ports-200 && stop_app
unset QT_SCALE_FACTOR
session_stop

session_start --no-tray
settings '{}'
"$bin/tidewatch" >"$session_dir/app.log" 2>&1 &
app=$!
wait_for 10 panel_geometry
sleep 1.5
read -r px py pw ph < <(panel_geometry)
import -window root -crop $((pw + 80))x$((ph + 80))+$((px - 40))+$((py - 40)) +repage "$out/window-without-tray.png"
stop_app
session_stop

# The island on the desktop: a Codex and a Claude Code session at work through their hooks,
# each relayed from below a process named like its agent, while the panel is closed.
session_start
settings "{$onboarded, \"display.showAgentActivity\": true, \"agentConnections.claude.configured\": true, \"agentConnections.codex.configured\": true}"
start_app
mkdir -p "$world/shell"
for agent in codex claude; do
  cp /bin/bash "$world/shell/$agent"
  (cd "$world" && "$world/shell/$agent" -c "printf '%s' '{\"session_id\":\"island-$agent\",\"hook_event_name\":\"UserPromptSubmit\",\"cwd\":\"$world\"}' |
    '$bin/tidewatch' agent-event --provider $agent --protocol 1; sleep 600") >/dev/null 2>&1 &
  pids+=($!)
done
wait_for 10 xdotool search --onlyvisible --name '^Tidewatch island$'
sleep 1.3  # its entrance, and the wave under way
import -window root -crop 480x72+720+0 +repage "$out/island-desktop.png"
stop_app
pkill -P "${pids[-1]}" 2>/dev/null || true
pkill -P "${pids[-2]}" 2>/dev/null || true
"$bin/gui/desktop_test_helper" render "$out"
rm -rf "$world"
echo "screenshots: $(ls "$out" | tr '\n' ' ')"
