# Completion of mktfs for bash; installed as share/bash-completion/completions/mktfs.

_mktfs() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} type=${COMP_WORDS[1]}
    local common='-a -f -h -o -r -s -v -x -y' words=''
    COMPREPLY=()
    if ((COMP_CWORD == 1)); then
        mapfile -t COMPREPLY < <(compgen -W 'ttd test -h' -- "$word")
        return
    fi
    case $type$before in
    ttd*-H) words='sha256 sha512 sha512-256 blake2s256 blake2b256 blake2b512 blake3' ;;
    ttd*-S) words='rsa-sha256 ecdsa-sha256 eddsa-25519 eddsa-448' ;;
    ttd*-B) words='512 1024 2048 4096 8192 16384 32768' ;;
    ttd*-[ACPRZ]) return ;;
    *-r)
        compopt -o dirnames 2>/dev/null
        return
        ;;
    ttd*-K | *-o) ;;
    *)
        case $type$word in
        ttd*-*) words="-A -B -C -H -K -M -P -R -S -Z $common" ;;
        test*-*) words='-a -h -o -r -s -v' ;;
        -*) words=$common ;;
        esac
        [[ $word == -* ]] || words=''
        ;;
    esac
    if [[ -n $words ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
    else
        compopt -o default 2>/dev/null
    fi
}
complete -F _mktfs mktfs
