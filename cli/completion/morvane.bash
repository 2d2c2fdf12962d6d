# Completion of morvane(1) for bash.
_morvane() {
    local cur=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command= i
    # The = of --user=NAME is a word of its own.
    if [[ $cur == = ]]; then
        cur=
    elif [[ $previous == = ]]; then
        previous=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    for ((i = 1; i < COMP_CWORD; i++)); do
        if [[ ${COMP_WORDS[i]} != -* ]]; then
            command=${COMP_WORDS[i]}
            break
        fi
    done
    COMPREPLY=()
    case $command in
        '')
            if [[ $cur == -* ]]; then
                mapfile -t COMPREPLY < <(compgen -W '--help --privileged --version' -- "$cur")
            else
                mapfile -t COMPREPLY < <(compgen -W 'access acl ls rename size' -- "$cur")
            fi
            ;;
        access | acl | ls | rename | size)
            if [[ $command == access && $previous == --user ]]; then
                mapfile -t COMPREPLY < <(compgen -u -- "$cur")
            elif [[ $command == access && $previous == --group ]]; then
                mapfile -t COMPREPLY < <(compgen -g -- "$cur")
            elif [[ $cur == -* ]]; then
                local -A options=([access]='--user --group --json'
                                  [acl]='--edit --propagate --dry-run --lossy --tree --json'
                                  [ls]='--json' [rename]='--json' [size]='--base2 --base10 --json')
                mapfile -t COMPREPLY < <(compgen -W "${options[$command]} --help --version" -- "$cur")
            else
                compopt -o filenames 2>/dev/null
                mapfile -t COMPREPLY < <(compgen -f -- "$cur")
            fi
            ;;
    esac
}
complete -F _morvane morvane
