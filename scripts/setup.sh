#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the benchmarks need, when missing.
#   scripts/setup.sh        everything
#   scripts/setup.sh run    only what building and running the programs needs
set -euo pipefail
cd "$(dirname "$0")/.."

run_packages=(
  cmake ninja-build g++ pkg-config
  nlohmann-json3-dev libutf8proc-dev
  # sd-bus's header: `tidewatch agents` asks the running application over the session bus.
  libsystemd-dev
  # The application: Qt 6 Widgets (the tray), Quick (the panel), DBus, Svg, and the QML modules
  # the panel loads at run time; its fonts.
  qt6-base-dev qt6-base-dev-tools qt6-declarative-dev qt6-declarative-dev-tools qt6-qmllint-plugins
  qt6-svg-dev libqt6svg6 libgl-dev libxcb1-dev libxcb-keysyms1-dev
  qml6-module-qtqml qml6-module-qtqml-models qml6-module-qtqml-workerscript qml6-module-qtquick
  qml6-module-qtquick-window
  fonts-inter fonts-jetbrains-mono
)

test_packages=(
  libgtest-dev libgmock-dev libbenchmark-dev
  clang libclang-rt-14-dev
  iproute2 lsof procps psmisc hyperfine time python3
  # The shells whose completions are tested.
  zsh fish
  # The desktop files' validators.
  desktop-file-utils appstream qml6-module-qttest
  # The application's tests and screenshots: a private X server, window manager, XEmbed tray,
  # compositor, synthetic input and a session bus.
  xvfb xauth openbox trayer xdotool x11-utils xcompmgr dbus dbus-x11 imagemagick
  # Real Debian software for the live tests: a JDK server, the packaged Redis and PostgreSQL.
  openjdk-17-jdk-headless redis-server postgresql-15
)

packages=("${run_packages[@]}")
[[ ${1:-all} == run ]] || packages+=("${test_packages[@]}")

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
# npm brings the panel's icons; a Node.js from elsewhere has its own npm.
command -v npm >/dev/null || missing+=(npm)

if ((${#missing[@]})); then
  echo "setup: installing ${missing[*]}"
  sudo_cmd=()
  [[ $(id -u) -eq 0 ]] || sudo_cmd=(sudo)
  export DEBIAN_FRONTEND=noninteractive
  "${sudo_cmd[@]}" apt-get update -qq
  "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

# The panel's icons: Lucide's SVGs from the npm package, into .deps/ (the build copies the ones it
# uses into the application).
lucide_version=1.62.0
lucide=.deps/lucide/node_modules/lucide-static
if ! grep -q "\"version\": \"$lucide_version\"" "$lucide/package.json" 2>/dev/null; then
  echo "setup: fetching lucide-static $lucide_version"
  npm install --silent --no-save --no-audit --no-fund --prefix .deps/lucide "lucide-static@$lucide_version" >/dev/null
fi
