#include "base/log.h"
#include "ttd/options.h"

namespace {

constexpr int CONTINUATION = 20;  // columns before a further help line

// An option with its argument, and its help lines; an empty line stays empty.
struct help_entry {
    const char *option;
    const char *lines[13];  // ended by null
};

constexpr help_entry help_entries[] = {
    {"-A <salt>",
     {"Cryptographic salt value (hex) to use in filesystem creation [O]",
      "NOTE: The salt length must be at least the chosen digest size in length (see -H)",
      "NOTE: The salt length is limited to a maximum of 128 bytes",
      "NOTE: The salt is randomly generated if it is not given as input"}},
    {"-B <size>",
     {"Input filesystem blocksize [M]",
      "The supported blocksize values in bytes are: 512, 1K, 2K, 4K, 8K, 16K, 32K"}},
    {"-C <size>",
     {"Calculation size [O]", "This allows the user to calculate the overhead of the ttd filesystem"}},
    {"-H <hash>",
     {"The cryptographic digest [M]", "The supported digests are: sha256, sha512, sha512-256, blake2s256,",
      "                           blake2b256, blake2b512 and blake3"}},
    {"-K <key>",
     {"The cryptographic key file [M]", "This is the private key when building a TTD image",
      "This is the public key when verifying a TTD image",
      "The key type must match the type of signature algorithm (see -S)"}},
    {"-M", {"Only output the TTD meta data [O]"}},
    {"-P <size>", {"Builds the filesystem image in Partition Mode* [O]"}},
    {"-R <version>",
     {"Anti-rollback version* [O]", "NOTE: The version field is an unsigned integer of 64 bits in length"}},
    {"-S <sig>",
     {"The cryptographic signature algorithm [M]", "The supported signature algoritms:",
      "rsa-sha256 (PKCS#1.5 padding)", "ecdsa-sha256", "eddsa-25519", "eddsa-448"}},
    {"-Z <sign_cmd>",
     {"Custom signing command for the cryptographic signature of the TTD image [O]",
      "NOTE: Custom signing allows clients to use a custom utility that will hide the",
      "private key while allowing signing to proceed. This method allows the signing",
      "operation to be done remotely through a utility they control.", "",
      "There are 2 tokens that need to appear in the signing command which will be replaced",
      "by temporary files upon calling the provided signing command:",
      "<hashfile>: path to a file containing the sha256 digest in binary format that needs to be signed",
      "<sigfile>: path to a file where the custom utility will write the signature in binary format", "",
      "Example: openssl pkeyutl -sign -in <hashfile> -inkey private_key.pem -out <sigfile> -pkeyopt "
      "digest:sha256"}},
};

constexpr const char *partition_text =
    "* Partition Mode\n"
    "This mode forces the TTD image to extend and be of the exact size given to the\n"
    "-P parameter. The maximum size of the inner wrapped filesystem image is given\n"
    "in the statistics output when building an image or when using the -C option. This\n"
    "must be used to flash TTD images on fixed size disk partitions.\n\n";

constexpr const char *rollback_text =
    "* Anti-rollback Version\n"
    "This optional field can store a user version value which combined with the\n"
    "filesystem driver 'rollback' mount option allows the system to deny mounting\n"
    "a filesystem image whose version is lower than the value passed to the mount\n"
    "option. This allows the integrator to maintain the chain of trust in a secure\n"
    "boot environment.\n\n";

constexpr const char *keys_text =
    "* TTD Supported Crypto Keys:\n"
    "TTD supports EC and RSA signing keys. The private key must be in PKCS#8 and the public key in X.509 "
    "format.\n\n"
    "Generation of RSA keys:\n\n"
    "openssl genpkey -algorithm RSA -out rsa_private_key.pem -pkeyopt rsa_keygen_bits:2048\n"
    "openssl pkey -in rsa_private_key.pem -pubout -out rsa_public_key.pem\n\n"
    "Generation of EC Keys:\n\n"
    "openssl ecparam -name prime256v1 -param_enc explicit -no_seed -out ec_params.pem -outform PEM\n"
    "openssl genpkey -paramfile ec_params.pem -out ec_private_key.pem\n"
    "openssl pkey -in ec_private_key.pem -pubout -out ec_public_key.pem\n\n";

void print_entry(const help_entry &entry) {
    mktfs_log(MKTFS_LOG_INFO, "  %-18s%s\n", entry.option, entry.lines[0]);
    for (const char *const *line = entry.lines + 1; *line; ++line)
        mktfs_log(MKTFS_LOG_INFO, "%*s%s\n", **line ? CONTINUATION : 0, "", *line);
    mktfs_log(MKTFS_LOG_INFO, "\n");
}

}  // namespace

void ttd_usage() {
    for (const help_entry &entry : help_entries)
        print_entry(entry);
    for (const char *text : {partition_text, rollback_text, keys_text})
        mktfs_log(MKTFS_LOG_INFO, "%s", text);
}
