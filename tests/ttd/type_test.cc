// The type's own operations on hostile and damaged images, and with calls that fail.  The
// model of the fuzz targets says what verification answers; the type has to agree.
#include <span>
#include <sys/resource.h>

#include "driver/modes.h"
#include "driver/template_type.h"
#include "driver/test_type.h"
#include "fs/filesystem.h"
#include "io/io.h"
#include "support/failing_openssl.h"
#include "support/kept_resources.h"
#include "support/temp_dir.h"
#include "ttd/options.h"
#include "ttd/signature.h"
#include "ttd/test_image.h"
#include "ttd/ttd_type.h"

namespace {

using sb_t = ttd_superblock;

std::string test_key(const std::string &name) {
    return std::string(MKTFS_TEST_DATA) + "/" + name;
}

sb_t get_superblock(const image_bytes &image) {
    sb_t sb;
    std::memcpy(&sb, image.data() + image.size() - sizeof sb, sizeof sb);
    return sb;
}

class type_run : public testing::Test {
protected:
    type_run() {
        mktfs_set_backend(ttd_backend());
        EXPECT_EQ(tcrypto_init(0, nullptr), 0);  // kept up between the runs
        // What asks for more memory than any of these images can need gets ENOMEM.
        getrlimit(RLIMIT_AS, &limit_);
        const rlimit small = {.rlim_cur = 512u << 20, .rlim_max = limit_.rlim_max};
        if (!SANITIZED)
            setrlimit(RLIMIT_AS, &small);
        EXPECT_EQ(ttd_opts_init(mktfs_get_filesystem_opts()), 0);
    }
    ~type_run() override {
        setrlimit(RLIMIT_AS, &limit_);
        verbose = 0;
        tcrypto_uninit();
        ttd_opts = ttd_options{};
        ttd_register_log_fct(ttd_log_default);
    }

    static void options_to_build(const char *digest) {
        const std::pair<int, const char *> options[] = {{'B', "512"}, {'H', digest}, {'S', "eddsa-25519"}};
        for (const auto &[letter, argument] : options)
            EXPECT_EQ(ttd_cmdopt_handler(mktfs_get_filesystem_opts(), letter, argument), 0);
    }

    // In memory of exactly its size, so that the address sanitizer sees reads beyond it.
    [[nodiscard]] int verify(image_bytes &image) {
        key_ = test_key("ed25519.pub.pem");
        ttd_opts.key_path = key_.c_str();
        mktfs_io_ptr io;
        EXPECT_EQ(mktfs_io_memwrap_create(image.data(), image.size(), th_out(io)), 0);
        EXPECT_TRUE(image.empty() || mktfs_io_write(io.get(), 0, image.data(), image.size()) == 0);
        fails_at = std::exchange(failing_call_, 0);
        int err = mktfs_filesystem_verify_init(fs());
        ttd_register_log_fct(mktfs_log);
        if (err == 0)
            err = mktfs_get_backend()->verify(fs(), io.get());
        mktfs_filesystem_verify_finit(fs());
        return err;
    }

    // An input of `size` bytes, which has another size when it comes to be read.
    [[nodiscard]] int build(std::size_t size, std::size_t size_later) {
        key_ = test_key("ed25519.pem");
        ttd_opts.key_path = key_.c_str();
        const std::string input = folder_.file("in", std::string(size, 'x'));
        mktfs_io_ptr output;
        EXPECT_EQ(mktfs_io_mem_create(0, th_out(output)), 0);
        EXPECT_EQ(mktfs_filesystem_build_init(fs()), 0);
        ttd_register_log_fct(mktfs_log);
        EXPECT_EQ(mktfs_filesystem_parse(input.c_str()), 0);
        std::filesystem::resize_file(input, size_later);
        fails_at = std::exchange(failing_call_, 0);
        const int err = mktfs_get_backend()->build(fs(), output.get());
        fails_at = 0;
        mktfs_filesystem_build_finit(fs());
        return err;
    }

    static void sign(image_bytes &image) {
        constexpr const char *keys[] = {"rsa.pem", "ec.pem", "ed25519.pem", "ed448.pem"};
        sb_t sb = get_superblock(image);
        const char *key = sb.sigtype - 1 < std::size(keys) ? keys[sb.sigtype - 1] : nullptr;
        EXPECT_TRUE(!key || ttd_sign_superblock(&sb, test_key(key).c_str()) == 0);
        std::memcpy(image.data() + image.size() - sizeof sb, &sb, sizeof sb);
    }
    static image_bytes signed_image(const image_shape &shape) {
        sb_t sb = superblock_of(shape);
        image_bytes image = make_image(sb);
        sign(image);
        return image;
    }
    log_capture log_;
    int failing_call_ = 0;  // of what is verified or built next

private:
    static mktfs_filesystem *fs() { return mktfs_get_filesystem(); }

    rlimit limit_{};
    temp_dir folder_;
    std::string key_;
};

TEST_F(type_run, ABlockSizeOfZeroEndsTheProcess) {
    image_bytes image = signed_image({});
    std::fill_n(image.end() - sizeof(sb_t) + offsetof(sb_t, blksize), 4, std::uint8_t{0});
    sign(image);
    EXPECT_EXIT((void)verify(image), testing::ExitedWithCode(255),
                "libdivide.h:[0-9]+: .*\\(\\): Error: divider must be != 0");
}

// Memory and the crypto library; tracing, no block is proven without its own memory.
TEST_F(type_run, NoFailingCallIsTakenForSuccess) {
    image_bytes image = signed_image({.size = 4096, .digest = 3, .hash_size = 64});
    verbose = 3;
    const int calls = fail_each_call([&] {
        failing_call_ = std::exchange(fails_at, 0);
        return verify(image) == 0;
    });
    EXPECT_GT(calls, 50);
    verbose = 0;
    options_to_build("sha512");
    EXPECT_EQ(ttd_cmdopt_handler(mktfs_get_filesystem_opts(), 'A', std::string(128, '5').c_str()), 0);
    std::map<std::string, int> failures;
    for (int call = 1; call < 80; ++call) {
        log_.clear();
        failing_call_ = call;
        if (build(2048, 2048) == ENXIO)
            for (const log_line &line : log_.lines())
                ++failures[line.text];
    }
    // A digest has four steps: its start, the salt, the block, its end.  Block 0 is one of the tree, too.
    for (const int block : {0, 1, 2, 3})
        EXPECT_EQ(failures["ttd: failed to hash data block " + std::to_string(block) + "\n"], block ? 4 : 8);
    EXPECT_EQ(failures["ttd: error while hashing input image (No such device or address)\n"], 16);
    EXPECT_EQ(failures["ttd: error while hashing merkle tree level '1'\n"], 4);
}

TEST_F(type_run, NothingIsKept) {
    image_bytes image = signed_image({.size = 65536});
    options_to_build("sha256");
    for (const bool verifies : {true, false})
        expect_nothing_kept("/nowhere", 1000, [&] {
            EXPECT_EQ(verifies ? verify(image) : build(8192, 8192), 0);
            log_.clear();
        });
}

TEST_F(type_run, AnInputThatChangesItsSizeIsRefused) {
    options_to_build("sha256");
    EXPECT_EQ(build(8192, 8192), 0);
    for (const std::size_t size : {4096u, 8191u, 12288u})
        EXPECT_EQ(build(8192, size), EINVAL);
    EXPECT_NE(log_.text().find("changed its size from '8192' to '4096'"), std::string::npos);
}

TEST(Types, TheOperationsOfSkeletonsDoNothing) {
    mktfs_filesystem_opts opts;
    for (const bool is_template : {true, false}) {
        const mktfs_backend *const type = is_template ? template_backend() : test_backend();
        const log_capture log;
        EXPECT_EQ(type->opts_init(&opts) + type->build_init(nullptr) + type->extract_init(nullptr) +
                      (is_template ? type->build(nullptr, nullptr) : 0) + type->mount(nullptr, nullptr) +
                      type->readroot(nullptr, nullptr, nullptr) + type->readdir(nullptr, nullptr, nullptr) +
                      type->readlnk(nullptr, nullptr, nullptr, nullptr) +
                      type->readfile(nullptr, nullptr, nullptr, nullptr),
                  0);
        EXPECT_EQ(type->cmdopt_handler(&opts, 'z', ""), EOPNOTSUPP);
        EXPECT_EQ(type->flags, is_template ? 1 : 9) << "sorted, hard links";
        const char *const told = "template_fsys_init\ntemplate_fsys_init\ntemplate_fsys_build\n"
                                 "template_fsys_mount\ntemplate_fsys_readroot\ntemplate_fsys_readdir\n"
                                 "template_fsys_readlink\ntemplate_fsys_readfile\n";
        EXPECT_EQ(log.text(), is_template ? told : "");
    }
    EXPECT_EQ(opts.flags, MKTFS_OPT_NO_OUTPUT);
    mktfs_inode root;
    EXPECT_EQ(ttd_backend()->readroot(nullptr, nullptr, &root), 0);
    EXPECT_EQ(std::tuple(root.type, root.ino, root.nchildren), std::tuple(MKTFS_INODE_DIR, 1, 1));
}

TEST(Modes, EndWithAFailingInitialization) {
    const temp_dir dir;
    const std::string input = dir.file("in", ""), output = dir / "out";
    mktfs_backend failing = *test_backend();
    failing.flags |= MKTFS_BACKEND_EXTRACT | MKTFS_BACKEND_VERIFY;
    failing.build_init = failing.verify_init = failing.extract_init = [](auto) { return EIO; };
    *mktfs_get_filesystem_opts() = {.flags = MKTFS_OPT_NO_SEARCH_PATHS};
    mktfs_set_backend(&failing);
    for (const auto run : {mktfs_run_build, mktfs_run_verify, mktfs_run_extract}) {
        const log_capture log;
        EXPECT_EQ(run({.backend = &failing, .output = output.c_str(), .input = input.c_str()}), EIO);
        EXPECT_EQ(log.text(), "Filesystem initialization failed (Input/output error)\n");
        EXPECT_FALSE(std::filesystem::exists(output));
    }
}

// The slow ones come last.
TEST_F(type_run, EveryChangedOrMissingByteIsFound) {
    image_bytes image = signed_image({.size = 65536});
    const std::size_t body = image.size() - sizeof(sb_t), significant = body + 264 + 64;
    ASSERT_EQ(verify(image), 0);
    for (std::size_t at = 0; at < image.size(); at += at < body || at >= significant ? 61 : 1)
        for (const unsigned bits : {0xffU, 1U << (at / 8 + at) % 8}) {
            image[at] ^= static_cast<std::uint8_t>(bits);
            ASSERT_EQ(verify(image), at < body ? EIO : at < significant ? EINVAL : 0) << at;
            image[at] ^= static_cast<std::uint8_t>(bits);
        }
    for (std::size_t length = 0; length < body; length += 127) {
        image_bytes cut(image.begin(), image.begin() + static_cast<std::ptrdiff_t>(length));
        ASSERT_EQ(verify(cut), EINVAL) << length;
        cut.insert(cut.end(), image.end() - static_cast<std::ptrdiff_t>(sizeof(sb_t)), image.end());
        ASSERT_EQ(verify(cut), EIO) << length;
    }
}

TEST_F(type_run, NoFieldMakesAnUnprovenImageAcceptable) {
    constexpr std::size_t fields[] = {12, 16, 24, 32, 40, 8,  // first what says where things are
                                      0,  4,  20, 48, 52, 56, 176, 184, 192, 196, 252, 260};
    // The last three: 2^32 blocks, a tree of 2^32 bytes, a tree offset that wraps.
    std::vector<std::uint64_t> values = {
        0,    1,    2,     31,    32,           33,          64,
        65,   128,  129,   511,   512,          513,         1024,
        4096, 8192, 32768, 65536, 512ULL << 32, 68719469056, UINT64_MAX - 100};
    for (const unsigned bits : {31U, 32U, 44U, 64U})
        for (const std::uint64_t distance : {0 - 4096ULL, 0 - 1ULL, 0ULL, 4096ULL})
            values.push_back((bits == 64 ? 0 : 1ULL << bits) + distance);
    for (const image_shape &shape : {image_shape{.size = 12288}, {.size = 5000, .partition = 65536}})
        for (const bool in_more : {false, true}) {
            image_bytes good = signed_image(shape);
            // As a part of something larger: zeros between tree and superblock give numbers
            // that are too large a place to point to.
            good.insert(good.end() - static_cast<std::ptrdiff_t>(sizeof(sb_t)), in_more ? 65536 : 0, 0);
            const sb_t sb = get_superblock(good);
            std::vector<std::uint64_t> all = values;
            for (const std::uint64_t place :
                 {std::uint64_t{good.size()}, good.size() - sizeof sb, sb.fssize, sb.offset, sb.totalsize})
                for (const std::uint64_t distance : {0 - 512ULL, 0 - 1ULL, 0ULL, 1ULL, 512ULL})
                    all.push_back(place + distance);
            for (const std::size_t field : std::span(fields).first(in_more ? 6 : 18))
                for (const std::uint64_t value : all) {
                    image_bytes image = good;
                    const std::size_t width = field >= 24 && field < 48 ? 8 : 4;
                    const auto change = [&] {
                        std::memcpy(image.data() + image.size() - sizeof sb + field, &value, width);
                    };
                    change();
                    sign(image);
                    change();  // the signature's length once more
                    sb_t changed = get_superblock(image);
                    if (changed.blksize == 0)
                        continue;  // ends the process
                    const bool is_signed = changed.sigtype == 3 && changed.sigsize == 64;
                    const int status = is_signed ? image_model(image, changed).status() : EINVAL;
                    EXPECT_EQ(verify(image), status) << "field " << field << " = " << value;
                }
        }
}

}  // namespace
