# Completion of moatwall-review(1) for bash.
_moatwall_review() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} at=1 command=
    COMPREPLY=()
    # The program's own options come first; the word behind them tells which command it is.
    while ((at < COMP_CWORD)) && [[ ${COMP_WORDS[at]} == --* ]]; do
        [[ ${COMP_WORDS[at]} != --@(html|proxy|only) ]] || ((at++))
        ((at++))
    done
    ((at >= COMP_CWORD)) || command=${COMP_WORDS[at]}
    if [[ $word == --* && $command == explain ]]; then
        mapfile -t COMPREPLY < <(compgen -W '--netperm --html --json --quiet' -- "$word")
    elif [[ $word == --* && -z $command ]]; then
        mapfile -t COMPREPLY < <(compgen -W '--html --json --proxy --only --lines --all --quiet --help --version' -- "$word")
    elif [[ $word == -V* ]]; then
        mapfile -t COMPREPLY < <(compgen -W '-V1 -V2 -V41 -V50' -- "$word")
    elif [[ $word == -* && $command != @(explain|diff|check|fleet) ]]; then
        mapfile -t COMPREPLY < <(compgen -W '-R -n -m -e -V' -- "$word")
    elif [[ $before == -V ]]; then
        mapfile -t COMPREPLY < <(compgen -W '1 2 41 50' -- "$word")
    elif [[ -n $word && -z $command && $before != --@(html|proxy|only) ]]; then
        mapfile -t COMPREPLY < <(compgen -W 'explain line diff check fleet' -- "$word")
        # A file that begins like a command is offered beside it.
        ((${#COMPREPLY[@]} == 0)) || mapfile -t -O ${#COMPREPLY[@]} COMPREPLY < <(compgen -f -- "$word")
    fi
    # All other words are files. With no reply readline completes them by itself, and knows how to quote.
}
complete -o default -F _moatwall_review moatwall-review
