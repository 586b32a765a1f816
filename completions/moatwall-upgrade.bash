# Completion of moatwall-upgrade(1) for bash.
_moatwall_upgrade() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    COMPREPLY=()
    case $word in
    -V*) mapfile -t COMPREPLY < <(compgen -W '-V1 -V2 -V41 -V50' -- "$word") ;;
    -*) mapfile -t COMPREPLY < <(compgen -W '-R -n -m -e -V' -- "$word") ;;
    *) [[ $before != -V ]] || mapfile -t COMPREPLY < <(compgen -W '1 2 41 50' -- "$word") ;;
    esac
    # All other words are files: those of the options, and the output. With no reply readline completes them by itself,
    # and knows how to quote.
}
complete -o default -F _moatwall_upgrade moatwall-upgrade
