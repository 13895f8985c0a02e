# Completion of ttdinfo for bash; installed as share/bash-completion/completions/ttdinfo.

_ttdinfo() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    COMPREPLY=()
    case $before in
    --min-rollback | --plan | --partition) return ;;
    --verify-signature | --key) word='' ;;
    --block)
        mapfile -t COMPREPLY < <(compgen -W '512 1024 2048 4096 8192 16384 32768' -- "$word")
        return
        ;;
    --digest)
        mapfile -t COMPREPLY < <(compgen -W 'sha256 sha512 sha512-256 blake2s256 blake2b256 blake2b512 blake3' -- "$word")
        return
        ;;
    esac
    if [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(
            compgen -W '--json --root-hash --min-rollback --verify-signature --verify --key
                --without-signature-check --plan --block --digest --partition --help --version -h' -- "$word")
    else
        compopt -o default 2>/dev/null
    fi
}
complete -F _ttdinfo ttdinfo
