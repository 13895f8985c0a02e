# Completion of ttdsign for bash; installed as share/bash-completion/completions/ttdsign.

_ttdsign() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} words
    COMPREPLY=()
    case $before in
    --rollback) return ;;
    --key | --old-key | --output) word='' ;;
    esac
    if [[ $before == --signature ]]; then
        words='rsa-sha256 ecdsa-sha256 eddsa-25519 eddsa-448'
    elif [[ $word == -* ]]; then
        words='--digest --output --key --signature --old-key --unchecked --rollback --dry-run --json --help --version -h'
    elif ((COMP_CWORD == 1)); then
        words='message join resign'
    else
        compopt -o default 2>/dev/null
        return
    fi
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
}
complete -F _ttdsign ttdsign
