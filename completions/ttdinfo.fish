# Completion of ttdinfo for fish; installed as share/fish/vendor_completions.d/ttdinfo.fish.

complete -c ttdinfo -l json -d 'Print a JSON object'
complete -c ttdinfo -l root-hash -d 'Print the root hash and nothing else'
complete -c ttdinfo -l min-rollback -x -d 'Refuse a lower anti-rollback version'
complete -c ttdinfo -l verify-signature -r -d 'Check the signature with a public key'
complete -c ttdinfo -s h -l help -d 'Print help'
complete -c ttdinfo -l version -d 'Print the version'
