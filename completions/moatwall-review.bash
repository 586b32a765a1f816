# Completion of moatwall-review(1) for bash.
_moatwall_review() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} at=1 command=
    COMPREPLY=()
    # The program's own options come first; the word behind them tells which command it is.
    while ((at < COMP_CWORD)) && [[ ${COMP_WORDS[at]} == --* ]]; do
        [[ ${COMP_WORDS[at]} != --html && ${COMP_WORDS[at]} != --proxy ]] || ((at++))
        ((at++))
    done
    ((at >= COMP_CWORD)) || command=${COMP_WORDS[at]}
    if [[ $before == --proxy ]]; then
        return
    elif [[ $word == --* ]] && [[ $command == explain ]]; then
        mapfile -t COMPREPLY < <(compgen -W '--netperm --json --quiet' -- "$word")
        return
    elif [[ $word == --* && -z $command ]]; then
        mapfile -t COMPREPLY < <(compgen -W '--html --json --proxy --quiet --all --help --version' -- "$word")
        return
    elif [[ $word == -V* ]]; then
        mapfile -t COMPREPLY < <(compgen -W '-V1 -V2 -V41 -V50' -- "$word")
        return
    elif [[ $word == -* && $command != @(explain|diff|check) ]]; then
        mapfile -t COMPREPLY < <(compgen -W '-R -n -m -e -V' -- "$word")
        return
    elif [[ $before == -V ]]; then
        mapfile -t COMPREPLY < <(compgen -W '1 2 41 50' -- "$word")
        return
    fi
    # All other words are files; the first can be a command, too. What is typed may begin with a quote or hold escapes,
    # which are taken off for the search; readline puts its own around what is chosen.
    local typed=$word
    typed=${typed#[\"\']}
    typed=${typed//\\/}
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$typed")
    if [[ -z $command && $before != --html ]]; then
        mapfile -t -O ${#COMPREPLY[@]} COMPREPLY < <(compgen -W 'explain diff check' -- "$typed")
    fi
}
complete -F _moatwall_review moatwall-review
