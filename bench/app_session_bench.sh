#!/usr/bin/env bash
# The tray application's cost, on a private X desktop with the XEmbed tray `trayer`: start to a
# tray icon, click to a shown panel, resident memory idle in the tray and with the panel open,
# and the CPU share over a minute idle in the tray and with the panel open (its ports rescanned
# every second). Medians of several starts. With `world` (the default) the whole run has the
# desktop-sized process table of bench/scan_world.py beside it; `bare` leaves the machine as it is.
#   bench/app_session_bench.sh [folder of the tidewatch executable] [starts] [idle seconds] [world|bare]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bin=${1:-$root/build/release/app}
starts=${2:-5}
idle_seconds=${3:-60}
table=${4:-world}
source "$root/app/gui/tests/desktop_session.sh"
trap 'kill ${app:-} ${world:-} 2>/dev/null; session_stop' EXIT

now_ms() { date +%s%3N; }
rss_mib() { awk '/VmRSS/ { printf "%.1f", $2 / 1024 }' "/proc/$1/status"; }
cpu_ticks() { awk '{ print $14 + $15 }' "/proc/$1/stat"; }
median() { sort -n | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }
app_pid() { pgrep -n -x tidewatch-app; }

session_start
if [[ $table == world ]]; then
  python3 "$root/bench/scan_world.py" --ready-file "$session_dir/world.ready" >/dev/null &
  world=$!
  wait_for 30 test -e "$session_dir/world.ready"
fi
mkdir -p "$XDG_CONFIG_HOME/tidewatch"
echo '{"launchAtLoginOfferCompleted": true, "tidewatchOnboardingComplete": true}' >"$XDG_CONFIG_HOME/tidewatch/defaults.json"

to_tray=() to_panel=() idle_rss=() open_rss=()
for ((run = 1; run <= starts; run++)); do
  start=$(now_ms)
  "$bin/tidewatch" >/dev/null 2>&1 &
  app=$!
  wait_for 10 tray_icon_geometry
  to_tray+=($(($(now_ms) - start)))
  sleep 3
  idle_rss+=("$(rss_mib "$(app_pid)")")
  read -r ix iy iw ih < <(tray_icon_geometry)
  # The window manager makes the panel the active window once it is mapped and takes the keyboard:
  # watched as an event, so no polling stands between the click and the reading.
  spy=$session_dir/active.$run
  (xprop -root -spy _NET_ACTIVE_WINDOW | while read -r line; do echo "$(now_ms) $line"; done >"$spy") &
  spy_pid=$!
  sleep 0.3
  xdotool mousemove $((ix + iw / 2)) $((iy + ih / 2))
  start=$(now_ms)
  xdotool click 1
  wait_for 5 panel_geometry
  sleep 0.3
  panel_id=$(printf '0x%x' "$(xdotool search --onlyvisible --name '^Tidewatch$' | head -n 1)")
  shown=$(awk -v id="$panel_id" -v t="$start" '$1 >= t && $NF == id { print $1; exit }' "$spy")
  pkill -P "$spy_pid" xprop 2>/dev/null || true
  kill "$spy_pid" 2>/dev/null || true
  to_panel+=($((shown - start)))
  sleep 3
  open_rss+=("$(rss_mib "$(app_pid)")")
  kill -TERM "$app"
  wait "$app" || true
done

# A minute idle in the tray, panel never opened.
"$bin/tidewatch" >/dev/null 2>&1 &
app=$!
wait_for 10 tray_icon_geometry
sleep 3
pid=$(app_pid)
before=$(cpu_ticks "$pid")
sleep "$idle_seconds"
ticks=$(($(cpu_ticks "$pid") - before))
hz=$(getconf CLK_TCK)

# A minute with the panel open and left alone.
read -r ix iy iw ih < <(tray_icon_geometry)
xdotool mousemove $((ix + iw / 2)) $((iy + ih / 2)) click 1
wait_for 5 panel_geometry
sleep 3
before=$(cpu_ticks "$pid")
sleep "$idle_seconds"
open_ticks=$(($(cpu_ticks "$pid") - before))
panel_geometry >/dev/null || echo "warning: the panel closed during the minute" >&2
share() { awk -v t="$1" -v hz="$hz" -v s="$idle_seconds" 'BEGIN { printf "%.3f", 100 * t / hz / s }'; }

echo "starts: $starts (software renderer unless QT_QUICK_BACKEND says otherwise)"
echo "start to tray icon, ms (median):        $(printf '%s\n' "${to_tray[@]}" | median)   [${to_tray[*]}]"
echo "click to active panel, ms (median):     $(printf '%s\n' "${to_panel[@]}" | median)   [${to_panel[*]}]"
echo "resident idle in the tray, MiB:         $(printf '%s\n' "${idle_rss[@]}" | median)   [${idle_rss[*]}]"
echo "resident with the panel open, MiB:      $(printf '%s\n' "${open_rss[@]}" | median)   [${open_rss[*]}]"
echo "process table: $table ($(ls /proc | grep -c '^[0-9]') processes)"
echo "CPU idle in the tray over ${idle_seconds} s:        $ticks ticks = $(share "$ticks")% of a core"
echo "CPU with the panel open over ${idle_seconds} s:     $open_ticks ticks = $(share "$open_ticks")% of a core"
