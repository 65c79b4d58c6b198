#!/usr/bin/env bash
# Renders the application as a user sees it into docs/screenshots/, on a private X desktop:
# the panel under the tray icon on each first-run surface and on the list (with a few real
# listeners), and the ordinary window of a desktop without a tray.
#   scripts/screenshots.sh [folder of the tidewatch executable]   (default: build/release/app)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bin=${1:-$root/build/release/app}
out=$root/docs/screenshots
source "$root/app/gui/tests/desktop_session.sh"
mkdir -p "$out"
trap 'kill ${servers[*]:-} ${app:-} 2>/dev/null; session_stop' EXIT

settings() {
  mkdir -p "$XDG_CONFIG_HOME/tidewatch"
  echo "$1" >"$XDG_CONFIG_HOME/tidewatch/defaults.json"
}

# Starts the app, opens the panel from its icon and saves the panel with its surroundings.
shoot_panel() {
  local name=$1
  "$bin/tidewatch" >"$session_dir/app.log" 2>&1 &
  app=$!
  wait_for 10 tray_icon_geometry
  read -r ix iy iw ih < <(tray_icon_geometry)
  xdotool mousemove $((ix + iw / 2)) $((iy + ih / 2)) click 1
  wait_for 5 panel_geometry
  sleep 1.5  # the fade and the first scans
  read -r px py pw ph < <(panel_geometry)
  import -window root -crop $((pw + 40))x$((ph + 20 + 1080 - py - ph))+$((px - 20))+$((py - 20)) +repage "$out/$name.png"
  kill -TERM "$app"
  wait "$app" || true
}

session_start
settings '{}'
shoot_panel panel-offer
settings '{"launchAtLoginOfferCompleted": true}'
shoot_panel panel-walkthrough

servers=()
for port in 5173 8000; do
  python3 -m http.server "$port" --bind 127.0.0.1 >/dev/null 2>&1 &
  servers+=($!)
done
settings '{"launchAtLoginOfferCompleted": true, "tidewatchOnboardingComplete": true}'
shoot_panel panel-list
session_stop

session_start --no-tray
"$bin/tidewatch" >"$session_dir/app.log" 2>&1 &
app=$!
wait_for 10 panel_geometry
sleep 1.5
read -r px py pw ph < <(panel_geometry)
# With the window manager's frame around it.
left=$((px > 40 ? px - 40 : 0))
top=$((py > 40 ? py - 40 : 0))
import -window root -crop $((pw + 80))x$((ph + 80))+$left+$top +repage "$out/window-without-tray.png"
kill -TERM "$app"
echo "screenshots: $(ls "$out" | tr '\n' ' ')"
