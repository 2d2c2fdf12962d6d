# Completion of morvane(1) for bash.
_morvane() {
    local cur=${COMP_WORDS[COMP_CWORD]} command= i
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
            if [[ $command == access && ${COMP_WORDS[COMP_CWORD - 1]} == --user ]]; then
                mapfile -t COMPREPLY < <(compgen -u -- "$cur")
            elif [[ $command == access && ${COMP_WORDS[COMP_CWORD - 1]} == --group ]]; then
                mapfile -t COMPREPLY < <(compgen -g -- "$cur")
            elif [[ $cur == -* ]]; then
                local -A options=([access]='--user --group --json'
                                    [acl]='--edit --propagate --dry-run --lossy --tree --json' [ls]='--json' [rename]='--json'
                                    [size]='--base2 --base10 --json')
                mapfile -t COMPREPLY < <(compgen -W "${options[$command]} --help --version" -- "$cur")
            else
                compopt -o filenames 2>/dev/null
                mapfile -t COMPREPLY < <(compgen -f -- "$cur")
            fi
            ;;
    esac
}
complete -F _morvane morvane
