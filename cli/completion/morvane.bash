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
                mapfile -t COMPREPLY < <(compgen -W 'acl ls size' -- "$cur")
            fi
            ;;
        acl | ls | size)
            if [[ $cur == -* ]]; then
                local -A options=([acl]='--tree --json' [ls]='--json' [size]='--base2 --base10 --json')
                mapfile -t COMPREPLY < <(compgen -W "${options[$command]} --help --version" -- "$cur")
            else
                compopt -o filenames 2>/dev/null
                mapfile -t COMPREPLY < <(compgen -f -- "$cur")
            fi
            ;;
    esac
}
complete -F _morvane morvane
