#!/bin/bash
# Holds the completions against the programs: completion_test.sh MKTFS TTDINFO
set -euo pipefail
mktfs=$(realpath "$1")
ttdinfo=$(realpath "$2")
completions=$(realpath "$(dirname "$0")/../../completions")
# shellcheck source=/dev/null
source "$completions/mktfs.bash"
# shellcheck source=/dev/null
source "$completions/ttdinfo.bash"

fail() {
    echo "FAILED: $*" >&2
    exit 1
}
# What the bash function offers for the last word, sorted, on one line.
offered() { # program, word...
    COMP_WORDS=("$@")
    COMP_CWORD=$(($# - 1))
    "_$1"
    printf '%s\n' "${COMPREPLY[@]}" | LC_ALL=C sort | xargs
}
expect_of() { # program, expected words, word...
    local program=$1 expected=$2 got
    shift 2
    got=$(offered "$program" "$@")
    [ "$got" = "$expected" ] || fail "$program $*: offers '$got', expected '$expected'"
}
expect() { expect_of mktfs "$@"; }
sorted() { LC_ALL=C sort | xargs; }
letters() { "$mktfs" "$@" | grep -oE '^  -[A-Za-z]' | tr -d ' '; }

all=$({ letters -h && letters ttd -h; } | sorted)
digests=$("$mktfs" ttd -h | sed -n '/supported digests/,/^$/p' | grep -oE '(sha|blake)[0-9a-z-]+' | sorted)
signatures=$("$mktfs" ttd -h | sed -n '/^  -S/,/^$/p' | grep -oE '(rsa|ecdsa|eddsa)-[0-9a-z]+' | sorted)
sizes=$(printf '%s\n' 512 1024 2048 4096 8192 16384 32768 | sorted)

expect "-h test ttd" ""
expect "test ttd" t
expect "$all" ttd -
expect "$digests" ttd -H ""
expect "sha512 sha512-256" ttd -K key -H sha5
expect "$signatures" ttd -S ""
expect "$sizes" ttd -B ""
expect "-H" ttd -B 4096 -H
expect "" ttd -A ""
expect "" ttd -o ""
expect "-a -h -o -r -s -v" test -
for value in $sizes; do
    "$mktfs" ttd -C 32768 -H sha256 -B "$value" >/dev/null || fail "-B $value"
done

# The same letters and values in the files for the other shells.
for letter in $all; do
    grep -qE -- "[')*]$letter\[" "$completions/_mktfs" || fail "zsh: $letter"
    grep -qE -- " -s ${letter#-} " "$completions/mktfs.fish" || fail "fish: $letter"
done
for file in _mktfs mktfs.fish; do
    for values in 512\ 1024\ 2048\ 4096\ 8192\ 16384\ 32768 "$digests" "$signatures"; do
        for value in $values; do
            grep -qE -- "[( ']${value}[) ']" "$completions/$file" || fail "$file: $value"
        done
    done
done

long_options=$("$ttdinfo" --help | grep -oE -- '--[a-z-]+' | sorted)
expect_of ttdinfo "$long_options -h" -
expect_of ttdinfo "" --min-rollback -
expect_of ttdinfo "" --verify-signature ""
for option in $long_options; do
    grep -qE -- "$option[['}]" "$completions/_ttdinfo" || fail "zsh: $option"
    grep -q -- " -l ${option#--} " "$completions/ttdinfo.fish" || fail "fish: $option"
done
for program in mktfs ttdinfo; do
    zsh -n "$completions/_$program"
    fish -n "$completions/$program.fish"
done
echo "completions agree"
