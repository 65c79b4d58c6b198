# fish completion for tidewatch

# The ports listening now, as the tidewatch being completed reports them (a build's path completes
# as well as the installed command), less those already on the line. The numbers in the first
# column of `tidewatch scan` are the table's rows; the heading and the rule never start with one.
function __tidewatch_ports
    set -l line (commandline -opc)
    set -l program (string replace -r '^~' -- $HOME $line[1])
    for port in ($program scan </dev/null 2>/dev/null | string match -r '^\d+(?= )' | sort -un)
        contains -- $port $line[2..-1]; or echo $port\t'listening port'
    end
end

complete -c tidewatch -f

# agent-event is left out: hooks start it, people don't type it.
complete -c tidewatch -n __fish_use_subcommand -a scan -d 'List the listening ports and the processes behind them'
complete -c tidewatch -n __fish_use_subcommand -a stop -d 'Stop the processes listening on ports'
complete -c tidewatch -n __fish_use_subcommand -a agents -d 'List the local coding agents'
complete -c tidewatch -n __fish_use_subcommand -a update-gate -d 'Tell whether automatic update checks will run'
complete -c tidewatch -n __fish_use_subcommand -s h -l help -d 'Print the help and exit'
complete -c tidewatch -n __fish_use_subcommand -l version -d 'Print the version and exit'

complete -c tidewatch -n '__fish_seen_subcommand_from scan; and not __fish_contains_opt json' -l json -d 'Print the report as JSON'
complete -c tidewatch -n '__fish_seen_subcommand_from scan; and not __fish_contains_opt all' -l all -d 'Also the hidden system and background listeners'
complete -c tidewatch -n '__fish_seen_subcommand_from scan' -l port -x -a '(__tidewatch_ports)' -d 'Only this port'
complete -c tidewatch -n '__fish_seen_subcommand_from scan; and not __fish_contains_opt agents-only' -l agents-only -d 'Only the listeners that coding agents started'
complete -c tidewatch -n '__fish_seen_subcommand_from scan; and not __fish_contains_opt watch' -l watch -d 'Redraw in place until Ctrl+C, every SECONDS if given'

complete -c tidewatch -n '__fish_seen_subcommand_from stop' -a '(__tidewatch_ports)'
complete -c tidewatch -n '__fish_seen_subcommand_from stop; and not __fish_contains_opt force' -l force -d 'SIGKILL instead of SIGTERM'
complete -c tidewatch -n '__fish_seen_subcommand_from stop; and not __fish_contains_opt pool' -l pool -d 'Stop a worker pool as one'
complete -c tidewatch -n '__fish_seen_subcommand_from stop; and not __fish_contains_opt dry-run' -l dry-run -d 'Say what would be stopped and why, signal nothing'

complete -c tidewatch -n '__fish_seen_subcommand_from agents; and not __fish_contains_opt json' -l json -d 'Print the agents as JSON'
