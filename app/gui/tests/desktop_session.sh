# A private desktop for the application's whole-process tests, screenshots and benchmarks: an
# Xvfb screen, its own session bus, openbox, a compositor (translucent windows need one) and,
# unless told otherwise, the XEmbed tray `trayer` at the bottom right. HOME and the XDG folders
# point into a scratch folder, so the user's settings and sockets are never touched.
#
#   source desktop_session.sh
#   session_start [--no-tray]     # exports DISPLAY, DBUS_SESSION_BUS_ADDRESS, HOME, ...
#   ...
#   session_stop

session_pids=()

# Polls a command until it succeeds, every 10 ms, for at most $1 seconds.
wait_for() {
  local limit=$1
  shift
  local deadline=$((SECONDS + limit))
  until "$@" >/dev/null 2>&1; do
    ((SECONDS <= deadline)) || return 1
    sleep 0.01
  done
}

session_start() {
  local tray=1
  [[ ${1:-} == --no-tray ]] && tray=0
  session_dir=$(mktemp -d /tmp/tidewatch-session.XXXXXX)
  export HOME=$session_dir/home XDG_CONFIG_HOME=$session_dir/home/.config
  export XDG_RUNTIME_DIR=$session_dir/run XDG_DATA_HOME=$session_dir/home/.local/share
  mkdir -p "$HOME" "$XDG_CONFIG_HOME" && mkdir -m 700 "$XDG_RUNTIME_DIR"
  unset WAYLAND_DISPLAY QT_QPA_PLATFORM SESSION_MANAGER
  # Update checks go nowhere: the discard port on this machine refuses them at once.
  export TIDEWATCH_UPDATE_FEED=http://127.0.0.1:9/appcast.xml

  local number
  for number in $(seq 90 140); do
    [[ -e /tmp/.X11-unix/X$number || -e /tmp/.X$number-lock ]] || break
  done
  export DISPLAY=:$number
  # -noreset: a client connecting while the server resets after its last one left is refused.
  Xvfb "$DISPLAY" -screen 0 "${SESSION_SCREEN:-1920x1080}x24" -nolisten tcp -noreset >"$session_dir/xvfb.log" 2>&1 &
  session_pids+=($!)
  wait_for 10 xdpyinfo || { echo "session: Xvfb did not start" >&2; return 1; }

  eval "$(dbus-daemon --config-file="$(dirname "${BASH_SOURCE[0]}")/private_session_bus.conf" --fork --print-address=1 --print-pid=1 |
    { read -r address; read -r pid; echo "export DBUS_SESSION_BUS_ADDRESS='$address'; session_bus_pid=$pid"; })"

  openbox >"$session_dir/openbox.log" 2>&1 &
  session_pids+=($!)
  # Windows mapped while the window manager is still starting may be left unmanaged.
  wm_ready() { [[ $(xprop -root _NET_SUPPORTING_WM_CHECK 2>/dev/null) == *"window id"* ]]; }
  wait_for 10 wm_ready || { echo "session: openbox did not start:" >&2; cat "$session_dir/openbox.log" >&2; return 1; }
  xcompmgr -n >"$session_dir/xcompmgr.log" 2>&1 &
  session_pids+=($!)
  if ((tray)); then
    trayer --edge bottom --align right --widthtype request --height 32 --SetDockType true \
      --transparent false >"$session_dir/trayer.log" 2>&1 &
    session_pids+=($!)
    wait_for 10 xdotool search --class trayer || { echo "session: trayer did not start" >&2; return 1; }
  fi
}

session_stop() {
  local pid
  for pid in "${session_pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  for pid in "${session_pids[@]}"; do wait "$pid" 2>/dev/null || true; done
  if [[ -n ${session_bus_pid:-} ]]; then kill "$session_bus_pid" 2>/dev/null || true; fi
  session_pids=()
  session_bus_pid=
  if [[ -n ${session_dir:-} ]]; then rm -rf "$session_dir"; fi
  session_dir=
}

# The application's tray icon, once trayer has embedded it: "x y width height" on the screen.
tray_icon_geometry() {
  xwininfo -root -tree | grep '("tidewatch-app"' | awk '{
    for (i = 1; i < NF; i++) if ($i ~ /^[0-9]+x[0-9]+\+/) {
      split($i, size, /[x+]/); split($(i + 1), at, "+")
      if (size[1] > 1 && size[1] < 100) print at[2], at[3], size[1], size[2]
    } }' | head -n 1 | grep .
}

# The panel's window ("Tidewatch", 700 x 480) while it is mapped: "x y width height".
panel_geometry() {
  local id
  for id in $(xdotool search --onlyvisible --name '^Tidewatch$' 2>/dev/null); do
    xwininfo -id "$id" | awk '/Absolute upper-left X/ {x=$NF} /Absolute upper-left Y/ {y=$NF}
      /Width:/ {w=$NF} /Height:/ {h=$NF} END { if (w >= 300) print x, y, w, h }'
  done | head -n 1 | grep .
}

# Which ports the running application's panel lists now, one "port process" a line.
listed_ports() {
  dbus-send --session --print-reply --dest=com.tidewatch.app /com/tidewatch/app com.tidewatch.app.ListedPorts |
    sed -n 's/^ *string "\(.*\)"$/\1/p'
}
