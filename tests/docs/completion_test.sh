#!/bin/bash
# Holds the completions against the programs: completion_test.sh MKTFS TTDINFO
set -euo pipefail
mktfs=$(realpath "$1") ttdinfo=$(realpath "$2")
cd "$(dirname "$0")/../../completions"
source ./mktfs.bash
source ./ttdinfo.bash

fail() { echo "FAILED: $*" >&2 && exit 1; }
sorted() { LC_ALL=C sort | xargs; }
expect() { # what is offered for the last word, program word...
    local expected=$1 got
    shift
    COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
    "_$1" 2>/dev/null || true # compopt works within a completion only
    got=$(printf '%s\n' "${COMPREPLY[@]}" | sorted)
    [ "$got" = "$expected" ] || fail "$*: offers '$got', expected '$expected'"
}

all=$({ "$mktfs" -h && "$mktfs" ttd -h; } | grep -oE '^  -[A-Za-z]' | tr -d ' ' | sorted)
digests=$("$mktfs" ttd -h | sed -n '/supported digests/,/^$/p' | grep -oE '(sha|blake)[0-9a-z-]+' | sorted)
signatures=$("$mktfs" ttd -h | sed -n '/^  -S/,/^$/p' | grep -oE '(rsa|ecdsa|eddsa)-[0-9a-z]+' | sorted)
sizes="1024 16384 2048 32768 4096 512 8192"
expect "-h test ttd" mktfs ""
expect "$all" mktfs ttd -
expect "$digests" mktfs ttd -H ""
expect "$signatures" mktfs ttd -S ""
expect "$sizes" mktfs ttd -B ""
expect "-a -h -o -r -s -v" mktfs test -
long_options=$("$ttdinfo" --help | grep -oE -- '--[a-z-]+' | sort -u | sorted)
expect "$long_options -h" ttdinfo -
expect "$digests" ttdinfo --digest ""
expect "" ttdinfo --min-rollback -

# The same letters and values in the files for the other shells.
for letter in $all; do
    { grep -qE -- "[')*]${letter}\[" _mktfs && grep -qE -- " -s ${letter#-} " mktfs.fish; } || fail "$letter"
done
for value in $sizes $digests $signatures; do
    for file in _mktfs mktfs.fish; do
        grep -qE -- "[( ']${value}[) ']" $file || fail "$file: $value"
    done
done
for option in $long_options; do
    { grep -qE -- "${option}[['}]" _ttdinfo && grep -q -- " -l ${option#--} " ttdinfo.fish; } || fail "$option"
done
zsh -n _mktfs && zsh -n _ttdinfo && fish -n mktfs.fish && fish -n ttdinfo.fish
