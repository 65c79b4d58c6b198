# Shared by the whole-process benchmarks (source it from the project's root): the tidewatch to
# time, and the desktop-sized process table to time it on.

# The executable given, else the release build's, built first.
tidewatch_executable() {
  if [[ -n ${1:-} ]]; then
    echo "$1"
    return
  fi
  cmake --preset release >/dev/null
  cmake --build --preset release --target tidewatch >/dev/null
  echo build/release/app/tidewatch
}

# Starts bench/scan_world.py unless WORLD=0, and returns once it stands; its pid is in $world.
start_world() {
  [[ ${WORLD:-1} != 0 ]] || return 0
  local ready
  ready=$(mktemp -u /tmp/tidewatch-world.XXXXXX)
  python3 bench/scan_world.py --ready-file "$ready" &
  world=$!
  for _ in $(seq 200); do [[ -s $ready ]] && break; sleep 0.1; done
  rm -f "$ready"
}
