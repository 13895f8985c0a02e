// The algorithm families of the "openssl" provider.  Each function registers its
// family's descriptors in order and stops at the first error, which it returns.
#pragma once

[[nodiscard]] int ossl_register_digests();
[[nodiscard]] int ossl_register_rngs();
[[nodiscard]] int ossl_register_aes_ciphers();
[[nodiscard]] int ossl_register_keygens();
[[nodiscard]] int ossl_register_macs();
[[nodiscard]] int ossl_register_kdfs();
[[nodiscard]] int ossl_register_signatures();
[[nodiscard]] int ossl_register_x509();
