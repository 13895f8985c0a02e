# Completion of mktfs for fish; installed as share/fish/vendor_completions.d/mktfs.fish.

function __mktfs_type
    set -l words (commandline -opc)
    test (count $words) -ge 2; and string match -q -- "$argv[1]*" $words[2]
end
function __mktfs_no_type
    test (count (commandline -opc)) -lt 2
end

complete -c mktfs -n __mktfs_no_type -f -a ttd -d 'TAV Trusted Disk'
complete -c mktfs -n __mktfs_no_type -f -a test -d 'List a build file'

complete -c mktfs -s a -d 'Treat warnings as fatal'
complete -c mktfs -s h -d 'Print help'
complete -c mktfs -s o -r -d 'Output image or folder'
complete -c mktfs -s r -x -a '(__fish_complete_directories)' -d 'Search paths of a build file'
complete -c mktfs -s s -d 'Print statistics'
complete -c mktfs -s v -d 'Print the steps'

complete -c mktfs -n '__mktfs_type ttd' -s f -d 'Replace the folder to extract into'
complete -c mktfs -n '__mktfs_type ttd' -s x -d 'Extract'
complete -c mktfs -n '__mktfs_type ttd' -s y -d 'Verify'
complete -c mktfs -n '__mktfs_type ttd' -s A -x -d 'Salt in hexadecimal digits'
complete -c mktfs -n '__mktfs_type ttd' -s B -x -a '512 1024 2048 4096 8192 16384 32768' -d 'Block size'
complete -c mktfs -n '__mktfs_type ttd' -s C -x -d 'Calculate for this size'
complete -c mktfs -n '__mktfs_type ttd' -s H -x \
    -a 'sha256 sha512 sha512-256 blake2s256 blake2b256 blake2b512 blake3' -d Digest
complete -c mktfs -n '__mktfs_type ttd' -s K -r -d 'Key file'
complete -c mktfs -n '__mktfs_type ttd' -s M -d 'Write meta data only'
complete -c mktfs -n '__mktfs_type ttd' -s P -x -d 'Partition of this size'
complete -c mktfs -n '__mktfs_type ttd' -s R -x -d 'Anti-rollback version'
complete -c mktfs -n '__mktfs_type ttd' -s S -x -a 'rsa-sha256 ecdsa-sha256 eddsa-25519 eddsa-448' -d Signature
complete -c mktfs -n '__mktfs_type ttd' -s Z -x -d 'Signing command'
