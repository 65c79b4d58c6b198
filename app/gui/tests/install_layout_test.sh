#!/usr/bin/env bash
# `cmake --install` into a scratch prefix puts every file where the desktop and the shells look for
# it, and the installed front executable hands over to the installed application.
#   install_layout_test.sh <build folder>
set -uo pipefail
build=$1
prefix=$(mktemp -d /tmp/tidewatch-install.XXXXXX)
trap 'rm -rf "$prefix"' EXIT
cmake --install "$build" --prefix "$prefix" >/dev/null || { echo "FAIL: cmake --install" >&2; exit 1; }

failures=0
for file in bin/tidewatch libexec/tidewatch/tidewatch-app share/applications/com.tidewatch.app.desktop \
  share/metainfo/com.tidewatch.app.metainfo.xml share/icons/hicolor/scalable/apps/com.tidewatch.app.svg \
  share/icons/hicolor/symbolic/apps/com.tidewatch.app-symbolic.svg share/bash-completion/completions/tidewatch \
  share/zsh/site-functions/_tidewatch share/fish/vendor_completions.d/tidewatch.fish; do
  if [[ -s $prefix/$file ]]; then echo "ok: $file"; else echo "FAIL: $file is missing" >&2; failures=$((failures + 1)); fi
done
[[ -x $prefix/libexec/tidewatch/tidewatch-app ]] || { echo "FAIL: tidewatch-app is not executable" >&2; failures=$((failures + 1)); }

# Without a display the front refuses and names the report; with one that cannot be reached, the
# installed application is what fails to connect, so the hand-over found it.
words=$(env -u DISPLAY -u WAYLAND_DISPLAY "$prefix/bin/tidewatch" 2>&1)
if [[ $? -eq 1 && $words == *"tidewatch scan"* ]]; then echo "ok: no display"; else
  echo "FAIL: without a display: $words" >&2; failures=$((failures + 1))
fi
words=$(env -u WAYLAND_DISPLAY DISPLAY=:999 "$prefix/bin/tidewatch" 2>&1)
if [[ $words == *"could not connect to display"* ]]; then echo "ok: the installed application starts"; else
  echo "FAIL: the hand-over: $words" >&2; failures=$((failures + 1))
fi
exit $((failures > 0))
