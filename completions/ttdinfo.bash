# Completion of ttdinfo for bash; installed as share/bash-completion/completions/ttdinfo.

_ttdinfo() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    COMPREPLY=()
    case $before in
    --min-rollback) return ;;
    --verify-signature) word='' ;;
    esac
    if [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(
            compgen -W '--json --root-hash --min-rollback --verify-signature --help --version -h' -- "$word")
    else
        compopt -o default 2>/dev/null
    fi
}
complete -F _ttdinfo ttdinfo
