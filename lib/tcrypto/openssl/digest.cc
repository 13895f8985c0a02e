// The provider's digest table.
#include "tcrypto/openssl/descriptor.h"
#include "tcrypto/openssl/digest_blake.h"
#include "tcrypto/openssl/digest_evp.h"
#include "tcrypto/openssl/families.h"
#include "tcrypto/openssl/ossl.h"

namespace {

using blake2s = record_digest<blake2s_record>;
using blake2b = record_digest<blake2b_record>;
using blake3 = record_digest<blake3_record>;

// Sizes in bytes.
template <class Backend>
consteval tcrypto_algorithm row(std::string_view name, std::uint32_t digest_size, std::uint32_t block_size) {
    tcrypto_algorithm algorithm = ossl_descriptor(TCRYPTO_DIGEST, name);
    algorithm.digest = {
        .digest_size = digest_size,
        .block_size = block_size,
        .init = Backend::init,
        .update = Backend::update,
        .final = Backend::final,
        .copy = Backend::copy,
        .blocks = Backend::blocks,
    };
    algorithm.ctx_create = Backend::create;
    algorithm.ctx_destroy = Backend::destroy;
    return algorithm;
}

constinit const tcrypto_algorithm DIGESTS[] = {
    row<evp_digest>("md5", 16, 64),         row<evp_digest>("sha1", 20, 64),
    row<evp_digest>("sha224", 28, 64),      row<evp_digest>("sha256", 32, 64),
    row<evp_digest>("sha384", 48, 128),     row<evp_digest>("sha512", 64, 128),
    row<evp_digest>("sha512-224", 28, 128), row<evp_digest>("sha512-256", 32, 128),
    row<evp_digest>("sha3-224", 28, 144),   row<evp_digest>("sha3-256", 32, 136),
    row<evp_digest>("sha3-384", 48, 104),   row<evp_digest>("sha3-512", 64, 72),
    row<blake2s>("blake2s128", 16, 64),     row<blake2s>("blake2s160", 20, 64),
    row<blake2s>("blake2s224", 28, 64),     row<evp_digest>("blake2s256", 32, 64),
    row<blake2b>("blake2b160", 20, 128),    row<blake2b>("blake2b256", 32, 128),
    row<blake2b>("blake2b384", 48, 128),    row<evp_digest>("blake2b512", 64, 128),
    row<blake3>("blake3", 32, 64),
};

}  // namespace

int ossl_register_digests() {
    return ossl_register_all(DIGESTS);
}
