# Completion of moatwall-upgrade(1) for bash.
_moatwall_upgrade() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    COMPREPLY=()
    case $word in
    -V*)
        mapfile -t COMPREPLY < <(compgen -W '-V1 -V2 -V41 -V50' -- "$word")
        return
        ;;
    -*)
        mapfile -t COMPREPLY < <(compgen -W '-R -n -m -e -V' -- "$word")
        return
        ;;
    esac
    if [[ $before == -V ]]; then
        mapfile -t COMPREPLY < <(compgen -W '1 2 41 50' -- "$word")
        return
    fi
    # All other words are files: those of the options, and the output.
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$word")
}
complete -F _moatwall_upgrade moatwall-upgrade
