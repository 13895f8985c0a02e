// Verification of whole images.  It may only answer 0 when a model that shares no
// code with the engine calls the inner image proven, and must do so then.
//
// Without a definition every superblock is signed before it is verified, so that what
// lies behind the signature is reached; with TRUE_SIGNATURES the input is the image,
// and only those bytes that the known good images signed may pass.
#include <string>

#include "base/log.h"
#include "fs/filesystem.h"
#include "image_input.h"
#include "io/io.h"
#include "memory_file.h"
#include "support/image_model.h"
#include "support/temp_dir.h"
#include "ttd/caches.h"
#include "ttd/engine_log.h"
#include "ttd/hash.h"
#include "ttd/options.h"
#include "ttd/superblock.h"
#include "ttd/ttd_type.h"
#include "ttd/verify.h"

static constexpr char PUBLIC_KEY[] = MKTFS_TEST_DATA "/ed25519.pub.pem";

static int ignore(int, const char *, ...) {
    return 0;
}

// The whole of -y, from memory of exactly the image's size or through a file.
static int verify(image_bytes &image, bool from_file, int verbosity) {
    mktfs_filesystem &fs = *mktfs_get_filesystem();
    ttd_opts = {};
    ttd_opts.key_path = PUBLIC_KEY;
    verbose = verbosity;
    require(mktfs_filesystem_verify_init(&fs) == 0);
    ttd_register_log_fct(ignore);
    int err = 0;
    if (from_file) {
        err = mktfs_filesystem_verify(&fs, memory_file(image.data(), image.size()).path());
    } else {
        mktfs_io_ptr io;
        require(mktfs_io_memwrap_create(image.data(), image.size(), th_out(io)) == 0);
        err = mktfs_get_backend()->verify(&fs, io.get());
    }
    mktfs_filesystem_verify_finit(&fs);
    return err;
}

#ifdef TRUE_SIGNATURES
static std::vector<image_bytes> good_images;

static void prepare() {
    for (const std::string name : {"one-level", "two-levels", "other-blocks", "partition"}) {
        const std::string bytes = read_file(GOOD_IMAGES "/" + name);
        good_images.emplace_back(bytes.begin(), bytes.end());
        require(verify(good_images.back(), false, 0) == 0);
    }
}

// Partition mode leaves what lies behind the inner image, and its hashes, unproven.
static bool has_signed_bytes(const image_bytes &image, const image_bytes &good) {
    ttd_superblock known;
    const std::size_t body = good.size() - sizeof known;
    std::memcpy(&known, good.data() + body, sizeof known);
    const std::size_t tree_end = (known.flags & TTD_FLAG_PARTITION) != 0 ? known.offset : body;
    const auto same = [&](std::size_t from, std::size_t to) {
        return std::equal(image.data() + from, image.data() + to, good.data() + from);
    };
    return image.size() >= good.size() && same(0, known.fssize) && same(known.offset, tree_end) &&
           std::memcmp(image.data() + image.size() - sizeof known, &known, TTD_SIGNED_SIZE) == 0;
}

static void check(const std::uint8_t *data, std::size_t size) {
    image_bytes image(data, data + size);
    const bool passes = verify(image, size % 2 != 0, 0) == 0;
    require(!passes || std::ranges::any_of(good_images, [&](const image_bytes &good) {
        return has_signed_bytes(image, good);
    }));
    require(passes || std::ranges::find(good_images, image) == good_images.end());
}
#else
static constexpr char PRIVATE_KEY[] = MKTFS_TEST_DATA "/ed25519.pem";
static constexpr std::uint32_t ED25519 = 3;

// The plain walk, block by block, with a cache of the size that the text asks for.
static bool walk_proves(image_bytes &image, const ttd_superblock &superblock, const char *cache_size) {
    const auto read = [](ttd_io *io, std::int64_t offset, void *buffer, std::uint64_t length) {
        return mktfs_io_read(static_cast<mktfs_io *>(io->handle), offset, buffer, length);
    };
    mktfs_io_ptr memory;
    require(mktfs_io_memwrap_create(image.data(), image.size(), th_out(memory)) == 0);
    ttd_io io = {.read = read, .destroy = nullptr, .handle = memory.get()};
    ttd_ctx ctx;
    ctx.superblock = superblock;
    ctx.data_io = ctx.hash_io = &io;
    std::size_t slots = 0;
    th_handle<tcrypto_ctx, ttd_hash_done> digest;
    require(ttd_tcrypto_init(&ctx) == 0 && ttd_superblock2info(&ctx.superblock, &ctx.info) == 0);
    require(ttd_hash_init(&ctx, th_out(digest)) == 0 && ttd_cache_option(&ctx, cache_size, &slots) == 0);
    require(ttd_create_slabs(&ctx, slots) == 0 && ttd_create_caches(&ctx, slots) == 0);
    require(ttd_create_vblkbitmap(&ctx) == 0);
    bool good = true;
    const std::uint64_t size = superblock.blksize;
    for (std::uint32_t block = 0; block * size < superblock.fssize; ++block)
        good &= ttd_verify_block(&ctx, block, nullptr, digest.get(), nullptr, nullptr, nullptr) == 0;
    ttd_free_vblkbitmap(&ctx);
    ttd_free_caches(&ctx);
    ttd_free_slabs(&ctx);
    digest.reset();
    ttd_tcrypto_uninit(&ctx);
    return good;
}

static tcrypto_key_ptr private_key;

static void prepare() {
    tcrypto_ctx_ptr keygen;
    require(tcrypto_keygen_request("ed25519", nullptr, 0, th_out(keygen)) == TCRYPTO_OK);
    require(tcrypto_privkey_from_file(keygen.get(), th_out(private_key), PRIVATE_KEY, TCRYPTO_FORMAT_PEM) ==
            TCRYPTO_OK);
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

static void check(const std::uint8_t *data, std::size_t size) {
    constexpr const char *cache_sizes[] = {nullptr, "0", "max", "50%"};
    image_input input(data, size);
    if (input.superblock.blksize == 0)
        return;  // ends the process
    input.superblock.sigtype = ED25519;
    if (input.choose(1))
        image_model(input.image, input.superblock).repair(input.superblock);
    sign(input.superblock);
    input.store();
    image_model model(input.image, input.superblock);
    const bool proven = model.proves();
    require((verify(input.image, input.choose(2), input.choices >> 6) == 0) == proven);
    if (model.is_well_formed())
        require(walk_proves(input.image, input.superblock, cache_sizes[input.choices >> 4 & 3]) == proven);
}
#endif

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    mktfs_register_log_fct(ignore);
    ttd_register_log_fct(ignore);
    mktfs_set_backend(ttd_backend());
    require(tcrypto_init(0, nullptr) == TCRYPTO_OK);  // kept up between the runs
    prepare();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    check(data, size);
    return 0;
}
