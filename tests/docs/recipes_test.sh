#!/bin/bash
# Runs the commands of the documents, the signing recipes with a key in a SoftHSM token:
# recipes_test.sh MKTFS.  Status 77 when a program for them is missing.
set -euo pipefail
mktfs=$1
here=$(realpath "$(dirname "$0")")
docs=$here/../../docs

for program in openssl perl mksquashfs softhsm2-util pkcs11-tool; do
    command -v $program >/dev/null || { echo "skipped: no $program" && exit 77; }
done
python3 -B "$here/run_doc.py" "$mktfs" "$docs"/{quickstart,image-format,signing,reading-images}.md
