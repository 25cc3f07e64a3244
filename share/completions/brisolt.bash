# Completion of brisolt for bash. Devices are asked of the command itself.

_brisolt() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command='' word
    local line='--baud --data --parity --stop --flow'
    COMPREPLY=()
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        case $word in ports | term | send | receive | chat | lines | monitor | tap) command=$word && break ;; esac
    done
    case $previous in
    --parity | -p) mapfile -t COMPREPLY < <(compgen -W 'none odd even mark space' -- "$current") && return ;;
    --flow | -f)
        [[ $command = chat && $previous = -f ]] ||
            { mapfile -t COMPREPLY < <(compgen -W 'none rtscts xonxoff dtrdsr' -- "$current") && return; }
        ;;
    --baud | -b) mapfile -t COMPREPLY < <(compgen -W '9600 19200 38400 57600 115200 230400 460800 921600' -- "$current") && return ;;
    --data | -d) mapfile -t COMPREPLY < <(compgen -W '5 6 7 8' -- "$current") && return ;;
    --stop | -s) mapfile -t COMPREPLY < <(compgen -W '1 1.5 2' -- "$current") && return ;;
    --eol) mapfile -t COMPREPLY < <(compgen -W 'cr lf crlf' -- "$current") && return ;;
    --dtr | --rts) mapfile -t COMPREPLY < <(compgen -W 'on off' -- "$current") && return ;;
    --protocol) mapfile -t COMPREPLY < <(compgen -W 'text xmodem ymodem zmodem' -- "$current") && return ;;
    esac
    local words=''
    case $command in
    '') words='ports term send receive chat lines monitor tap --help --version' ;;
    ports) words='--json --watch --names --help' ;;
    term) words="$line --echo --hex --timestamps --eol --any-eol --quit-key --keep --log --trace --send --expect --until --timeout --linger --help" ;;
    send) words="$line --protocol --timeout --keep --trace --add-returns --char-delay --line-delay --help" ;;
    receive) words="$line --protocol --timeout --keep --trace --quiet-ends --help" ;;
    chat) words="$line --file --timeout --verbose --echo --report --phone --phone2 --environment --help" ;;
    lines) words="$line --dtr --rts --break --watch --help" ;;
    monitor) words="$line --json --seconds --keep --help" ;;
    tap) words="$line --link --hex --quiet --pcap --keep --help" ;;
    esac
    if [[ -z $command || $current = -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
    else
        mapfile -t COMPREPLY < <(compgen -W "$("${COMP_WORDS[0]}" ports --names 2>/dev/null)" -- "$current"; compgen -f -- "$current")
    fi
}
complete -o filenames -F _brisolt brisolt
