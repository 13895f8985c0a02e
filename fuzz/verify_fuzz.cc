// Verification of whole images, signed here so that what lies behind the signature is
// reached.  It answers 0 exactly when a model that shares no code with the engine calls
// the inner image proven, and never when what was signed, or the signature, has changed.
#include "base/log.h"
#include "fs/filesystem.h"
#include "inputs.h"
#include "io/io.h"
#include "support/image_model.h"
#include "ttd/engine_log.h"
#include "ttd/options.h"
#include "ttd/superblock.h"
#include "ttd/ttd_type.h"

static constexpr std::uint32_t ED25519 = 3;
static tcrypto_key_ptr private_key;

// The whole of -y, from memory of exactly the image's size or through a file.
static bool verifies(image_bytes &image, bool from_file, int verbosity) {
    mktfs_filesystem &fs = *mktfs_get_filesystem();
    ttd_opts = {};
    ttd_opts.key_path = MKTFS_TEST_DATA "/ed25519.pub.pem";
    verbose = verbosity;
    require(mktfs_filesystem_verify_init(&fs) == 0);
    ttd_register_log_fct(log_nothing);
    int err = 0;
    if (from_file) {
        err = mktfs_filesystem_verify(&fs, memory_file(image.data(), image.size()).path());
    } else {
        mktfs_io_ptr io;
        require(mktfs_io_memwrap_create(image.data(), image.size(), th_out(io)) == 0);
        err = mktfs_get_backend()->verify(&fs, io.get());
    }
    mktfs_filesystem_verify_finit(&fs);
    return err == 0;
}

// With a key that was loaded once, which takes as long as all the rest of a run.
static void sign(ttd_superblock &superblock) {
    const tcrypto_signature_params params = {.operation = TCRYPTO_SIGN};
    const auto message = ttd_signed_bytes(superblock);
    std::size_t length = TTD_MAX_SIGNATURE;
    tcrypto_ctx_ptr signature;
    require(tcrypto_signature_request("eddsa-pure", nullptr, 0, th_out(signature)) == TCRYPTO_OK);
    require(tcrypto_signature_init(signature.get(), private_key.get(), &params) == TCRYPTO_OK);
    require(tcrypto_signature_sign_oneshot(signature.get(), message.data(), message.size(), superblock.sig,
                                           &length) == TCRYPTO_OK);
    superblock.sigsize = static_cast<std::uint32_t>(length);
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    mktfs_register_log_fct(log_nothing);
    mktfs_set_backend(ttd_backend());
    require(tcrypto_init(0, nullptr) == TCRYPTO_OK);  // kept up between the runs
    tcrypto_ctx_ptr keygen;
    require(tcrypto_keygen_request("ed25519", nullptr, 0, th_out(keygen)) == TCRYPTO_OK);
    require(tcrypto_privkey_from_file(keygen.get(), th_out(private_key), MKTFS_TEST_DATA "/ed25519.pem",
                                      TCRYPTO_FORMAT_PEM) == TCRYPTO_OK);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    image_input input(data, size);
    if (input.superblock.blksize == 0)
        return 0;  // ends the process
    input.superblock.sigtype = ED25519;
    if (input.choose(1))
        image_model(input.image, input.superblock).repair(input.superblock);
    sign(input.superblock);
    const std::size_t covered = TTD_SIGNED_SIZE + sizeof input.superblock.sigsize + input.superblock.sigsize;
    input.store();
    const bool proven = image_model(input.image, input.superblock).proves();
    require(verifies(input.image, input.choose(2), input.choices >> 6) == proven);
    // One byte less true, the last of the input says which.
    input.image[input.image.size() - TTD_SUPERBLOCK_SIZE + data[size - 1] * covered / 256] ^=
        input.choices | 1;
    require(input.superblock.blksize == 0 || !verifies(input.image, input.choose(2), 0));
    return 0;
}
