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
                mapfile -t COMPREPLY < <(compgen -W '--help --version' -- "$cur")
            else
                mapfile -t COMPREPLY < <(compgen -W 'acl' -- "$cur")
            fi
            ;;
        acl)
            if [[ $cur == -* ]]; then
                mapfile -t COMPREPLY < <(compgen -W '--tree --json --help --version' -- "$cur")
            else
                compopt -o filenames 2>/dev/null
                mapfile -t COMPREPLY < <(compgen -f -- "$cur")
            fi
            ;;
    esac
}
complete -F _morvane morvane
