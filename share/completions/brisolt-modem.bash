# Completion of brisolt-modem for bash.

_brisolt_modem() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    COMPREPLY=()
    case $previous in
    --exchange) mapfile -t COMPREPLY < <(compgen -d -- "$current") && return ;;
    --link) mapfile -t COMPREPLY < <(compgen -f -- "$current") && return ;;
    --verbose | --unplugged | --help | --version) ;;
    --*) return ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W '--number --exchange --link --stored --rate --training --time-scale --verbose --busy --ringing --no-dialtone --silent --refuse --slow --unplugged --noise --drop-after-bytes --drop-after-ms --help --version' -- "$current")
}
complete -o filenames -F _brisolt_modem brisolt-modem
