#!/bin/bash
# Runs the commands of the documents, the signing recipes with a key in a SoftHSM token:
# recipes_test.sh MKTFS.  Status 77 when a program for them is missing.
set -euo pipefail
mktfs=$1
here=$(realpath "$(dirname "$0")")
docs=$here/../../docs

for program in openssl perl mksquashfs softhsm2-util pkcs11-tool; do
    command -v $program >/dev/null || {
        echo "skipped: no $program"
        exit 77
    }
done
python3 -B "$here/run_doc.py" "$mktfs" "$docs/quickstart.md" "$docs/image-format.md" "$docs/signing.md"

# The runner notices a command that fails, and one that prints something else.
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# shellcheck disable=SC2016 # the fences of a document
printf '```sh\ntrue\n```\n```sh\nmktfs ttd -y -K none none\n```\n' >"$work/fails.md"
# shellcheck disable=SC2016
printf '```sh\necho one\n```\n\n```text\ntwo\n```\n' >"$work/differs.md"
for document in fails differs; do
    if python3 -B "$here/run_doc.py" "$mktfs" "$work/$document.md" >/dev/null; then
        echo "FAILED: $document.md is accepted"
        exit 1
    fi
done
