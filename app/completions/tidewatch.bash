# bash completion for tidewatch                                -*- shell-script -*-

# The ports listening now, each once, as the tidewatch being completed reports them: a build's
# path completes as well as the installed command. The numbers in the first column of
# `tidewatch scan` are the table's rows; the heading and the rule never start with one.
_tidewatch_ports()
{
    local program=${COMP_WORDS[0]/#\~/$HOME}
    "$program" scan </dev/null 2>/dev/null | awk '$1 ~ /^[0-9]+$/ && !seen[$1]++ { print $1 }'
}

# Of the words given, those not on the command line yet before the word being completed.
_tidewatch_unused()
{
    local word given i
    for word in "$@"; do
        given=0
        for ((i = 2; i < COMP_CWORD; i++)); do
            [[ ${COMP_WORDS[i]} == "$word" ]] && given=1 && break
        done
        ((given)) || printf '%s\n' "$word"
    done
}

_tidewatch()
{
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
    local -a words ports
    COMPREPLY=()

    if ((COMP_CWORD == 1)); then
        # agent-event is left out: hooks start it, people don't type it.
        if [[ $cur == -* ]]; then
            words=(-h --help --version)
        else
            words=(scan stop agents update-gate)
        fi
    else
        case ${COMP_WORDS[1]} in
            scan)
                if [[ $prev == --port ]]; then
                    mapfile -t ports < <(_tidewatch_ports)
                    mapfile -t words < <(_tidewatch_unused "${ports[@]}")
                else
                    # --port may be given again; the others once. --watch's seconds are optional,
                    # so after it the options still come.
                    mapfile -t words < <(_tidewatch_unused --json --all --agents-only --watch)
                    words+=(--port)
                fi
                ;;
            stop)
                if [[ $cur == -* ]]; then
                    mapfile -t words < <(_tidewatch_unused --force --pool --dry-run)
                else
                    mapfile -t ports < <(_tidewatch_ports)
                    mapfile -t words < <(_tidewatch_unused "${ports[@]}")
                fi
                ;;
            agents)
                mapfile -t words < <(_tidewatch_unused --json)
                ;;
            *)
                return 0
                ;;
        esac
    fi
    ((${#words[@]})) || return 0
    mapfile -t COMPREPLY < <(compgen -W "${words[*]}" -- "$cur")
    return 0
}
complete -F _tidewatch tidewatch

# ex: filetype=sh
