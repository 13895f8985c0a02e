// Key files.  A key that loads can be exported and loaded again with the same result,
// and can be used without harm.
#include <string>
#include <vector>

#include "memory_file.h"
#include "support/require.h"
#include "tcrypto/tcrypto.h"

using bytes = std::vector<std::uint8_t>;

struct algorithm {
    const char *keygen;
    const char *signature;
};

static constexpr algorithm algorithms[] = {
    {"rsa", "rsa-with-sha256"},
    {"ec", "ecdsa-with-sha256"},
    {"ed25519", "eddsa-pure"},
    {"ed448", "eddsa-pure"},
};
static constexpr std::uint8_t message[260] = {1, 2, 3};

static bytes exported(const tcrypto_key *key, std::uint32_t format) {
    const auto to_mem = tcrypto_key_is_private(key) ? tcrypto_privkey_to_mem : tcrypto_pubkey_to_mem;
    std::size_t length = 0;
    require(to_mem(key, nullptr, &length, format) == TCRYPTO_OK);
    bytes out(length);
    require(to_mem(key, out.data(), &length, format) == TCRYPTO_OK && length <= out.size());
    out.resize(length);
    return out;
}

static void check_round_trip(tcrypto_ctx *keygen, const tcrypto_key *key, std::uint32_t type) {
    for (const std::uint32_t format : {TCRYPTO_FORMAT_DER, TCRYPTO_FORMAT_PEM}) {
        const bytes first = exported(key, format);
        tcrypto_key_ptr again;
        require(tcrypto_load_key_from_mem(keygen, th_out(again), first.data(), first.size(), type, format) ==
                TCRYPTO_OK);
        require(exported(again.get(), format) == first);
    }
}

// One byte again and again is no signature, whatever the key says of itself (zeros are
// one for keys of small order); a damaged private key may fail to sign.
static void use(const char *name, const tcrypto_key *key, tcrypto_signature_operation operation) {
    const tcrypto_signature_params params = {.operation = operation};
    tcrypto_ctx_ptr signature;
    bytes room(3832, 0x5a);
    std::size_t length = room.size();
    int result = 0;
    require(tcrypto_signature_request(name, nullptr, 0, th_out(signature)) == TCRYPTO_OK);
    if (tcrypto_signature_init(signature.get(), key, &params) != TCRYPTO_OK)
        return;
    if (operation == TCRYPTO_SIGN)
        (void)tcrypto_signature_sign_oneshot(signature.get(), message, sizeof message, room.data(), &length);
    else
        (void)tcrypto_signature_verify_oneshot(signature.get(), message, sizeof message, room.data(), 64,
                                               &result);
    require(result == 0 && length <= room.size());
}

static void check(const algorithm &kind, std::uint32_t type, std::uint32_t format, const bytes &text) {
    const memory_file file(text.data(), text.size());
    tcrypto_ctx_ptr keygen;
    tcrypto_key_ptr key, public_key;
    require(tcrypto_keygen_request(kind.keygen, nullptr, 0, th_out(keygen)) == TCRYPTO_OK);
    const int err = tcrypto_load_key_from_file(keygen.get(), th_out(key), file.path(), type, format);
    require((err == TCRYPTO_OK) == (key != nullptr));
    if (!key)
        return;
    require(tcrypto_key_is_private(key.get()) == (type == TCRYPTO_KEY_PRIVATE));
    check_round_trip(keygen.get(), key.get(), type);
    use(kind.signature, key.get(), type == TCRYPTO_KEY_PRIVATE ? TCRYPTO_SIGN : TCRYPTO_VERIFY);
    if (type == TCRYPTO_KEY_PRIVATE &&
        tcrypto_pubkey_from_privkey(keygen.get(), key.get(), th_out(public_key)) == TCRYPTO_OK)
        use(kind.signature, public_key.get(), TCRYPTO_VERIFY);
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    require(tcrypto_init(0, nullptr) == TCRYPTO_OK);  // kept up between the runs
    return 0;
}

// The first byte, a digit or letter in the seeds, chooses algorithm, type and format.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size == 0)
        return 0;
    const std::uint32_t type = (*data & 4) != 0 ? TCRYPTO_KEY_PRIVATE : TCRYPTO_KEY_PUBLIC;
    const std::uint32_t format = (*data & 8) != 0 ? TCRYPTO_FORMAT_DER : TCRYPTO_FORMAT_PEM;
    check(algorithms[*data & 3], type, format, bytes(data + 1, data + size));
    return 0;
}
