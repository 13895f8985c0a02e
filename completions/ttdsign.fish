# Completion of ttdsign for fish; installed as share/fish/vendor_completions.d/ttdsign.fish.

complete -c ttdsign -n __fish_use_subcommand -x -a 'message join resign'
complete -c ttdsign -l digest -d 'Write the digest of the bytes to sign'
complete -c ttdsign -l output -r -d 'Write to a file'
complete -c ttdsign -l key -r -d 'Public key (join) or private key (resign)'
complete -c ttdsign -l signature -x -a 'rsa-sha256 ecdsa-sha256 eddsa-25519 eddsa-448' -d 'Kind of signature'
complete -c ttdsign -l old-key -r -d 'Public key of the present signature'
complete -c ttdsign -l unchecked -d 'Sign whatever the present signature is'
complete -c ttdsign -l rollback -x -d 'Set the anti-rollback version'
complete -c ttdsign -l dry-run -d 'Change no image'
complete -c ttdsign -l json -d 'Print a JSON object'
complete -c ttdsign -s h -l help -d 'Print help'
complete -c ttdsign -l version -d 'Print the version'
