#!/usr/bin/env bash
# The whole application on a private X desktop: it starts from the front executable, its icon
# appears in the tray, a click opens the "Tidewatch" panel where the placement says, a listener
# started afterwards is listed within two seconds, Escape closes the panel, a second start opens
# it again and leaves, SIGTERM ends it without leaving its socket. Without a tray the panel shows
# up by itself as an ordinary window. With a StatusNotifierItem host (a test watcher), Activate
# opens the panel at the pointer. The end of the X session ends it as cleanly. A hook session
# relayed from below a process named `claude` raises the "Tidewatch island" beside the virtual
# notch, without taking the focus; it follows the desktop's contrast setting live, gives way to
# the tray's counts under a full-screen window, and plays the session's end before it goes, which
# a notification server hears of exactly once; clicking that notice opens the panel. The
# global shortcut Ctrl+Alt+P opens and closes the panel, with NumLock on too, and says so when
# another client holds it; on a Wayland session the desktop's portal binds it instead. A row's
# focus action brings its host terminal's window forward.
#   app_session_test.sh <folder of the tidewatch executable> <sni_test_watcher> <desktop_test_helper>
set -uo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
front=$1/tidewatch
watcher_program=$2
desktop_helper=$3
source "$here/desktop_session.sh"

for tool in Xvfb dbus-daemon openbox xcompmgr trayer xdotool xwininfo xdpyinfo xprop xmessage import python3 ss; do
  command -v "$tool" >/dev/null || { echo "FAIL: $tool is missing; scripts/setup.sh installs it" >&2; exit 1; }
done

failures=0
check() {
  local what=$1
  shift
  if "$@"; then echo "ok: $what"; else echo "FAIL: $what" >&2; failures=$((failures + 1)); fi
}

trap 'kill ${listener:-} ${app:-} ${watcher:-} ${agent:-} ${note:-} ${portal:-} ${full:-} ${grabber:-} ${shortcuts:-} ${host:-} ${notices:-} 2>/dev/null; session_stop' EXIT

# The socket lives in the user's session runtime folder when there is one; a test must not take
# that from a Tidewatch the user runs, so it connects no provider there.
runtime_owned_by_session=0
[[ -d /run/user/$(id -u) ]] && runtime_owned_by_session=1

onboarded() {
  mkdir -p "$XDG_CONFIG_HOME/tidewatch"
  local claude=true
  ((runtime_owned_by_session)) && claude=false
  printf '{"launchAtLoginOfferCompleted": true, "tidewatchOnboardingComplete": true, "agentConnections.claude.configured": %s}\n' \
    "$claude" >"$XDG_CONFIG_HOME/tidewatch/defaults.json"
}
socket_path() { echo "$HOME/.local/state/tidewatch/runtime/agent-events.sock"; }
no_socket() { [[ ! -e $(socket_path) ]]; }
has_socket() { [[ -S $(socket_path) ]]; }
panel_closed() { ! panel_geometry; }
lists_port() { listed_ports | grep -q "^$1 "; }
listening() { ss -ltn "sport = :$1" | grep -q LISTEN; }
app_gone() { ! kill -0 "$app" 2>/dev/null; }
free_port() { python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'; }

# --- with a tray --------------------------------------------------------------------------
session_start || exit 1
onboarded
check "without the application, agents answers from the process table" \
  bash -c "'$front' agents | grep -q 'from the process table'"
"$front" >"$session_dir/app.log" 2>&1 &
app=$!
check "the tray icon appears" wait_for 10 tray_icon_geometry
# The tray lays its icons out after embedding them: click where the icon has come to rest.
settled_icon() {
  local first second
  first=$(tray_icon_geometry) && sleep 0.2 && second=$(tray_icon_geometry) && [[ $first == "$second" ]]
}
wait_for 5 settled_icon
read -r ix iy iw ih < <(tray_icon_geometry)
xdotool mousemove $((ix + iw / 2)) $((iy + ih / 2)) click 1
check "a click opens the panel" wait_for 5 panel_geometry
read -r px py pw ph < <(panel_geometry)
# Centred on the icon but 8 points inside the screen; the icon is in the lower half, so above it.
expected_x=$((ix + iw / 2 - 350))
((expected_x > 1920 - 700 - 8)) && expected_x=$((1920 - 700 - 8))
check "the panel is 700 x 480 at $expected_x,$((iy - 6 - 480)) (was $px,$py ${pw}x$ph)" \
  test "$px $py $pw $ph" = "$expected_x $((iy - 6 - 480)) 700 480"
((runtime_owned_by_session)) || check "the hook socket listens" wait_for 5 has_socket

port=$(free_port)
python3 -m http.server "$port" --bind 127.0.0.1 >/dev/null 2>&1 &
listener=$!
# Two seconds from the moment it listens, however long Python takes to start.
wait_for 10 listening "$port"
check "a new listener is listed within two seconds" wait_for 2 lists_port "$port"
kill "$listener"

xdotool key Escape
check "Escape closes the panel" wait_for 3 panel_closed
"$front"
check "a second start exits 0" test $? -eq 0
check "and opens the panel" wait_for 3 panel_geometry
check "only one application runs" test "$(pgrep -c -x tidewatch-app)" -eq 1

kill -TERM "$app"
check "SIGTERM ends it" wait_for 5 app_gone
check "no socket is left behind" no_socket
grep -q . "$session_dir/app.log" && { echo "application output:"; cat "$session_dir/app.log"; }
session_stop

# --- without a tray -----------------------------------------------------------------------
session_start --no-tray || exit 1
onboarded
"$front" >"$session_dir/app.log" 2>&1 &
app=$!
check "without a tray the panel shows by itself" wait_for 8 panel_geometry
kill -INT "$app"
check "SIGINT ends it" wait_for 5 app_gone
check "no socket is left behind" no_socket

session_stop

# --- a StatusNotifierItem host -------------------------------------------------------------
# The item tells no geometry: the panel opens at the pointer of the click.
session_start --no-tray || exit 1
onboarded
"$watcher_program" >"$session_dir/items" 2>"$session_dir/watcher.log" &
watcher=$!
check "the test watcher takes its name" wait_for 5 dbus-send --session --print-reply --dest=org.kde.StatusNotifierWatcher \
  /StatusNotifierWatcher org.freedesktop.DBus.Peer.Ping
"$front" >"$session_dir/app.log" 2>&1 &
app=$!
check "the item registers with the watcher" wait_for 10 test -s "$session_dir/items"
item=$(head -n 1 "$session_dir/items")
xdotool mousemove 1800 20
dbus-send --session --print-reply --dest="$item" /StatusNotifierItem org.kde.StatusNotifierItem.Activate int32:1800 int32:20 >/dev/null
check "Activate opens the panel" wait_for 5 panel_geometry
read -r px py pw ph < <(panel_geometry)
# A pointer in the top half: below it, kept 8 points inside the right edge.
check "the panel is at 1212,38 under the pointer (was $px,$py)" test "$px $py" = "1212 38"
xdotool key Escape
check "Escape closes it" wait_for 3 panel_closed
sleep 3.5
check "with a tray, no window opens by itself" panel_closed
kill -TERM "$app" "$watcher"
check "SIGTERM ends it" wait_for 5 app_gone
session_stop

# --- the island ------------------------------------------------------------------------------
# A StatusNotifierItem host, so the tray's tooltip can be read over the bus; a settings portal
# the test speaks for; a focused window whose focus must stay where it is.
if ((runtime_owned_by_session)); then
  echo "skipped: the island (the session's runtime folder holds the user's own socket)"
else
  session_start --no-tray || exit 1
  onboarded
  sed -i 's/}$/, "display.showAgentActivity": true}/' "$XDG_CONFIG_HOME/tidewatch/defaults.json"
  "$watcher_program" >"$session_dir/items" 2>"$session_dir/watcher.log" &
  watcher=$!
  sed -i 's/}$/, "notifications.agentSessions": true}/' "$XDG_CONFIG_HOME/tidewatch/defaults.json"
  # The notification server takes its clicks from a pipe the test holds open.
  mkfifo "$session_dir/clicks"
  exec 8<>"$session_dir/clicks"
  "$desktop_helper" notifications <"$session_dir/clicks" >"$session_dir/notices" 2>/dev/null &
  notices=$!
  coproc PORTAL { "$desktop_helper" portal; }
  portal=$PORTAL_PID
  wait_for 5 dbus-send --session --print-reply --dest=org.freedesktop.portal.Desktop /org/freedesktop/portal/desktop \
    org.freedesktop.DBus.Peer.Ping
  xmessage -geometry +100+200 "focused" &
  note=$!
  wait_for 5 xdotool search --onlyvisible --name '^xmessage$'
  focused=$(xdotool search --onlyvisible --name '^xmessage$' | head -n 1)
  check "a window to keep the focus shows up" test -n "$focused"
  xdotool windowactivate "$focused" 2>/dev/null
  active_window() { xdotool getactivewindow 2>/dev/null; }
  focus_on_note() { [[ $(active_window) == "$focused" ]]; }
  check "the focused window has the focus" wait_for 5 focus_on_note
  "$front" >"$session_dir/app.log" 2>&1 &
  app=$!
  check "the hook socket listens" wait_for 5 has_socket
  check "the item registers with the watcher" wait_for 10 test -s "$session_dir/items"
  item=$(head -n 1 "$session_dir/items")

  mkdir -p "$session_dir/bin" && cp /bin/bash "$session_dir/bin/claude"
  # A hook event relayed by `tidewatch agent-event` from below a process named claude, which
  # then runs the rest.
  relay_from_claude() {
    local event='{"session_id":"island-1","hook_event_name":"'$1'","cwd":"'$HOME'","prompt":"never sent"}'
    "$session_dir/bin/claude" -c "printf '%s' '$event' | '$front' agent-event --provider claude --protocol 1; $2"
  }
  island_window() { xdotool search --onlyvisible --name '^Tidewatch island$' | head -n 1 | grep .; }
  island_gone() { ! island_window; }
  island_state() {
    dbus-send --session --print-reply --dest=com.tidewatch.app /com/tidewatch/app com.tidewatch.app.IslandState |
      sed -n 's/^ *string "\(.*\)"$/\1/p' | paste -sd'|'
  }
  island_says() { [[ $(island_state) == "$1" ]]; }
  gray_at() { import -window root -crop "1x1+$1+$2" -depth 8 txt:- | sed -n 's/.*(\([0-9]*\),.*/\1/p' | tail -n 1; }
  bordered() { (($(gray_at 960 31) > 40)); }
  tray_tooltip() {
    dbus-send --session --print-reply --dest="$item" /StatusNotifierItem org.freedesktop.DBus.Properties.Get \
      string:org.kde.StatusNotifierItem string:ToolTip | grep -q "$1"
  }

  # Away from the test's output, which a lingering child would hold open.
  relay_from_claude UserPromptSubmit "sleep 120" >/dev/null 2>&1 &
  agent=$!
  check "a hook session from below claude raises the island" wait_for 10 island_window
  check "counting one Claude Code session" wait_for 5 island_says "island|1 Claude Code session"
  # The terminal asks the running application over the session bus: the hook's state comes along.
  hook_session_at_work() {
    "$front" agents --json | python3 -c 'import json, sys
d = json.load(sys.stdin)
sys.exit(d["source"] != "application" or not any(
    s["provider"] == "Claude Code" and s["state"] == "working" for s in d["sessions"]))'
  }
  check "tidewatch agents tells the hook session at work, from the application" hook_session_at_work
  check "and its table says Working" bash -c "'$front' agents | grep -q '^Working  *Claude Code'"
  read -r gx gy gw gh < <(xwininfo -id "$(island_window)" | awk '/Absolute upper-left X/ {x=$NF}
    /Absolute upper-left Y/ {y=$NF} /Width:/ {w=$NF} /Height:/ {h=$NF} END {print x, y, w, h}')
  # 1920 wide: the 48-point notch at 936, a 58-point wing either side of it, 32 high at the top.
  check "beside the virtual notch at 878,0, 164 x 32 (was $gx,$gy ${gw}x$gh)" test "$gx $gy $gw $gh" = "878 0 164 32"
  check "no window took the focus" focus_on_note
  check "the island is no managed window (no taskbar, no switcher)" \
    bash -c "! xprop -root _NET_CLIENT_LIST | grep -qi $(printf '0x%x' "$(island_window)")"
  plain_black() { (($(gray_at 960 31) < 20)); }
  check "the pill's lower edge is plain black once it has faded in" wait_for 2 plain_black

  # Above other windows: the focused window raised over it stays under it.
  # The root's child that holds a window (the window manager's frame), and its place from the
  # top of the stacking order (xwininfo lists the topmost first).
  top_level_of() {
    local window=$1 tree step
    for step in 1 2 3 4; do
      tree=$(xwininfo -id "$window" -tree) || return 1
      [[ $tree == *"Parent window id: "*"(the root window)"* ]] && break
      window=$(awk '/Parent window id/ { print $4 }' <<<"$tree")
    done
    printf '0x%x' "$window"
  }
  stacking_index() { xwininfo -root -children | awk -v w="$1" '$1 == w { print NR; exit }'; }
  island_on_top() {
    (($(stacking_index "$(printf '0x%x' "$(island_window)")") < $(stacking_index "$(top_level_of "$focused")")))
  }
  xdotool windowmove "$focused" 900 0
  xdotool windowraise "$focused"
  check "a window raised over it stays under it" wait_for 2 island_on_top
  # On every workspace.
  xdotool set_desktop 1
  sleep 0.6
  check "it shows on another workspace too" island_window
  xdotool set_desktop 0
  xdotool windowmove "$focused" 100 200
  echo "org.freedesktop.appearance contrast u:1" >&"${PORTAL[1]}"
  check "increased contrast draws its border, live" wait_for 3 bordered

  "$desktop_helper" fullscreen &
  full=$!
  check "a full-screen window sends the island to the tray" wait_for 5 island_says "menuBarFallback"
  check "its window goes" wait_for 3 island_gone
  check "and the tray tells the count" wait_for 3 tray_tooltip "1 Claude Code session running"
  kill "$full"
  wait "$full" 2>/dev/null
  check "the island comes back after it" wait_for 5 island_window
  check "and the tray is the plain icon again" wait_for 3 tray_tooltip '"Tidewatch"'

  relay_from_claude SessionEnd true >/dev/null 2>&1
  check "the session's end plays the completion" wait_for 3 island_says "island|1 Claude Code session ended"
  check "then the island goes" wait_for 5 island_gone
  told_once() { [[ $(grep -c . "$session_dir/notices") == 1 ]]; }
  check "the session's end is told as a notice" wait_for 3 told_once
  relay_from_claude SessionEnd true >/dev/null 2>&1
  sleep 1
  check "exactly once, naming the provider ($(head -n 1 "$session_dir/notices"))" \
    bash -c "told=\$(cat '$session_dir/notices'); [[ \$told == 'Claude Code finished|'*' is done.' && \$told != *\$'\\n'* ]]"

  check "the focus never moved" focus_on_note
  echo "invoke 1" >&8
  check "clicking the notice opens the panel" wait_for 5 panel_geometry
  exec 8>&-
  pkill -P "$agent"
  kill -TERM "$app" "$agent" "$watcher" "$note" "$portal" "$notices"
  check "SIGTERM ends it" wait_for 5 app_gone
  session_stop
fi

# --- the global shortcut and a host brought forward --------------------------------------------
session_start || exit 1
onboarded
shortcut_says() {
  [[ $(dbus-send --session --print-reply --dest=com.tidewatch.app /com/tidewatch/app com.tidewatch.app.ShortcutState |
    sed -n 's/^ *string "\(.*\)"$/\1/p' | paste -sd'|') == "$1" ]]
}
mkdir -p "$session_dir/bin" && cp "$desktop_helper" "$session_dir/bin/xterm"
port=$(free_port)
# A terminal (by its name) whose shell's child serves a port.
"$session_dir/bin/xterm" host "$port" >/dev/null 2>&1 &
host=$!
wait_for 10 listening "$port"
"$front" >"$session_dir/app.log" 2>&1 &
app=$!
check "the tray icon appears" wait_for 10 tray_icon_geometry
check "Ctrl+Alt+P is taken" wait_for 5 shortcut_says "Ctrl+Alt+P|registered"
xdotool key ctrl+alt+p
check "Ctrl+Alt+P opens the panel" wait_for 3 panel_geometry
check "its rows include the terminal's server" wait_for 3 lists_port "$port"
# Narrow the list to that row, select it and ask for its host: T.
read -r px py pw ph < <(panel_geometry)
xdotool mousemove $((px + 300)) $((py + 64)) click 1
xdotool type --delay 30 "$port"
sleep 0.5
xdotool key --delay 120 Down t
host_window=$(xdotool search --name '^focus test host$' | head -n 1)
host_active() { [[ $(xdotool getactivewindow 2>/dev/null) == "$host_window" ]]; }
check "T brings the terminal's window forward" wait_for 3 host_active
xdotool key ctrl+alt+p
wait_for 2 panel_geometry && xdotool key ctrl+alt+p
check "Ctrl+Alt+P closes it again" wait_for 3 panel_closed
xdotool key Num_Lock
xdotool key ctrl+alt+p
check "and opens it with NumLock on" wait_for 3 panel_geometry
xdotool key Escape Num_Lock
kill -TERM "$app"
check "SIGTERM ends it" wait_for 5 app_gone
# Another client holds the combination first: the app says so and runs on.
"$desktop_helper" grab >"$session_dir/grab" 2>/dev/null &
grabber=$!
wait_for 5 grep -q grabbed "$session_dir/grab"
"$front" >"$session_dir/app.log" 2>&1 &
app=$!
check "the tray icon appears" wait_for 10 tray_icon_geometry
check "a held combination gives the error" \
  wait_for 5 shortcut_says "Ctrl+Alt+P|That shortcut is already in use by another app."
read -r ix iy iw ih < <(tray_icon_geometry)
xdotool mousemove $((ix + iw / 2)) $((iy + ih / 2)) click 1
check "and the panel still opens from the tray" wait_for 5 panel_geometry
kill -TERM "$app" "$grabber"
check "SIGTERM ends it" wait_for 5 app_gone
# A Wayland session: the desktop's GlobalShortcuts portal binds the shortcut, and its Activated
# signal is the press.
coproc SHORTCUTS { "$desktop_helper" shortcuts; }
shortcuts=$SHORTCUTS_PID
portal_up() {
  [[ $(dbus-send --session --print-reply --dest=org.freedesktop.DBus /org/freedesktop/DBus \
    org.freedesktop.DBus.NameHasOwner string:org.freedesktop.portal.Desktop) == *"boolean true"* ]]
}
wait_for 5 portal_up
XDG_SESSION_TYPE=wayland "$front" >"$session_dir/app.log" 2>&1 &
app=$!
check "the portal binds the shortcut" wait_for 10 shortcut_says "Ctrl+Alt+P|registered"
bound=
while read -r -t 2 -u "${SHORTCUTS[0]}" line; do [[ $line == BindShortcuts* ]] && bound=$line; done
check "as CTRL+ALT+p" test "$bound" == "BindShortcuts open-panel CTRL+ALT+p"
echo press >&"${SHORTCUTS[1]}"
check "the portal's press opens the panel" wait_for 3 panel_geometry
echo press >&"${SHORTCUTS[1]}"
check "and closes it" wait_for 3 panel_closed
kill -TERM "$app" "$shortcuts" "$host"
check "SIGTERM ends it" wait_for 5 app_gone
pkill -f "http.server $port" || true
session_stop

# --- the desktop session ends ---------------------------------------------------------------
session_start || exit 1
onboarded
"$front" >"$session_dir/app.log" 2>&1 &
app=$!
check "the tray icon appears" wait_for 10 tray_icon_geometry
((runtime_owned_by_session)) || check "the hook socket listens" wait_for 5 has_socket
kill "${session_pids[0]}"  # the X server
check "the end of the X session ends it" wait_for 5 app_gone
check "no socket is left behind" no_socket

exit $((failures > 0))
