#!/usr/bin/env bash
# The shell completions of bash, zsh and fish offer tidewatch's commands (never agent-event, which
# only hooks start), each command's options, and for `stop` and `scan --port` the ports that the
# tidewatch being completed lists, each once and not again once given, with its errors kept off
# the terminal. A stand-in tidewatch first on PATH prints a fixed table, so nothing needs to
# listen. The real tidewatch knows every word offered, and its own table gives the ports.
#   completions_test.sh <tidewatch executable> <folder of the completion files>
set -euo pipefail
tidewatch=$(realpath "$1")
completions=$(realpath "$2")

work=$(mktemp -d /tmp/tidewatch-completions.XXXXXX)
trap 'kill ${listener:-} 2>/dev/null; rm -rf "$work"' EXIT

# Stand-ins: the one on PATH lists 3000 twice (on two addresses), 5173 and 8080 and complains on
# standard error; a build elsewhere lists only 9000; another lists nothing.
stand_in() {
  mkdir -p "$work/$1"
  printf '#!/bin/sh\n[ "$1" = scan ] || exit 2\n%s\n' "$2" >"$work/$1/tidewatch"
  chmod +x "$work/$1/tidewatch"
}
heading="cat <<'TABLE'
Tidewatch — 4 listeners (1 system/background hidden) · 212 processes · scanned 10:00:00
Agents present: 1 Codex · 1 Claude
"
rule="──────────────────────────────────────────────────────────────────────────────"
stand_in path "$heading
PORT   PROTO PROCESS               PID     CLASSIFICATION        BIND
$rule
3000   TCP   node                  1234    Next.js               localhost
5173   TCP   node ×3               2345    Vite                  localhost
3000   TCP   node                  1234    Next.js               all interfaces
8080   TCP   java                  3456    Spring Boot           all interfaces
TABLE
echo 'warning: some processes could not be read' >&2"
stand_in build "$heading
PORT   PROTO PROCESS               PID     CLASSIFICATION        BIND
$rule
9000   TCP   php-fpm ×4            4567    PHP-FPM               localhost
TABLE"
stand_in quiet "$heading
No local listeners.
TABLE"
export PATH="$work/path:$PATH"

# What each shell offers at the end of a command line, one word a line. Each reads the
# completion file the way that shell loads it.
offers_bash() {
  (
    set +eu +o pipefail
    source "$completions/tidewatch.bash"
    read -ra COMP_WORDS <<<"$1"
    [[ $1 == *' ' ]] && COMP_WORDS+=("")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1)) COMP_LINE=$1 COMP_POINT=${#1}
    _tidewatch
    printf '%s\n' "${COMPREPLY[@]}"
  )
}
offers_fish() {
  fish --no-config -c 'source $argv[1]; complete -C $argv[2]' "$completions/tidewatch.fish" "$1" | cut -f1
}
# zsh completes only inside its line editor: a pseudo-terminal types the line and a Tab into an
# interactive zsh, where compadd also writes the matches it is handed to a file.
cat >"$work/complete.zsh" <<'ZSH'
zmodload zsh/zpty
folder=$1 line=$2 out=$3
zpty shell zsh -f -i
zpty -w shell "PS1= RPS1=; fpath=(${(q)folder} \$fpath); autoload -Uz compinit; compinit -u -D"
zpty -w shell "zstyle ':completion:*' insert-tab false"
zpty -w shell "compadd() { if (( \${@[(I)-[OAD]*]} )); then builtin compadd \"\$@\"; return; fi;
  local -a m; builtin compadd -O m \"\$@\"; (( \$#m )) && print -rl -- \$m >>${(q)out}/matches;
  builtin compadd \"\$@\"; }"
zpty -w shell "comppostfuncs=(done_); done_() { : >${(q)out}/done }"
zpty -w -n shell "$line"$'\t'
for i in {1..200}; do [[ -e $out/done ]] && break; sleep 0.05; done
zpty -d shell
[[ -e $out/done ]] || { print -u2 "zsh never finished completing"; exit 1 }
[[ ! -e $out/matches ]] || cat $out/matches
ZSH
offers_zsh() {
  local out
  out=$(mktemp -d "$work/zsh.XXXXXX")
  zsh -f "$work/complete.zsh" "$completions" "$1" "$out"
}

shells=(bash)
for shell in zsh fish; do
  if command -v "$shell" >/dev/null; then shells+=("$shell"); else echo "skip: $shell is not installed"; fi
done

passed=0 failed=0
result() {
  if [[ $1 == ok ]]; then echo "ok: $2"; passed=$((passed + 1)); else echo "FAIL: $2" >&2; failed=$((failed + 1)); fi
}

if zsh -n "$completions/_tidewatch" 2>"$work/err"; then result ok "zsh reads _tidewatch"; else
  result fail "zsh reads _tidewatch: $(cat "$work/err")"
fi

# The line up to the cursor | the words offered there.
cases=(
  "tidewatch |agents scan stop update-gate"
  "tidewatch st|stop"
  "tidewatch a|agents"
  "tidewatch -|--help --version -h"
  "tidewatch scan --|--agents-only --all --json --port --watch"
  "tidewatch scan --json --watch --|--agents-only --all --port"
  "tidewatch scan --port |3000 5173 8080"
  "tidewatch scan --port 3000 --port |5173 8080"
  "tidewatch stop |3000 5173 8080"
  "tidewatch stop 80|8080"
  "tidewatch stop 3000 --force |5173 8080"
  "tidewatch stop --|--dry-run --force --pool"
  "tidewatch agents --|--json"
  "tidewatch update-gate |"
  "$work/build/tidewatch stop |9000"
  "$work/quiet/tidewatch stop |"
)
for shell in "${shells[@]}"; do
  for case in "${cases[@]}"; do
    line=${case%%|*} expected=${case#*|}
    offered=$("offers_$shell" "$line" 2>"$work/err" | LC_ALL=C sort -u | paste -sd" " -) || true
    if [[ $offered == "$expected" && ! -s $work/err ]]; then result ok "$shell: '$line'"; else
      result fail "$shell: '$line' offers '$offered', not '$expected' $(cat "$work/err")"
    fi
  done
done

# Every command and option offered is one the real tidewatch names in its help.
help=$("$tidewatch" --help)
for word in $(printf '%s\n' "${cases[@]}" | cut -d'|' -f2 | tr " " "\n" | grep -v '^[0-9]' | sort -u); do
  if grep -qw -- "$word" <<<"$help"; then result ok "--help names $word"; else result fail "--help names $word"; fi
done

# The real table: a listener started here is among the ports offered for the real tidewatch.
mkdir -p "$work/real"
ln -s "$tidewatch" "$work/real/tidewatch"
port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
python3 -m http.server "$port" --bind 127.0.0.1 >/dev/null 2>&1 &
listener=$!
for _ in $(seq 100); do ss -Htln "sport = :$port" | grep -q . && break; sleep 0.1; done
for shell in "${shells[@]}"; do
  if "offers_$shell" "$work/real/tidewatch stop " 2>/dev/null | grep -qx "$port"; then
    result ok "$shell: the real table offers $port"
  else
    result fail "$shell: the real table does not offer $port"
  fi
done

echo "$passed passed, $failed failed"
((failed == 0))
