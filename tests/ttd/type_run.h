// The ttd type's own operations in one process: builds images into memory, and
// verifies and extracts images that lie in memory of exactly their size, so that the
// address sanitizer sees every read beyond them.
#pragma once

#include <gtest/gtest.h>

#include <random>
#include <utility>
#include <vector>

#include "base/log.h"
#include "fs/filesystem.h"
#include "io/io.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "tcrypto/tcrypto.h"
#include "ttd/engine_log.h"
#include "ttd/options.h"
#include "ttd/ttd_type.h"

#ifdef __has_feature
inline constexpr bool SANITIZED = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool SANITIZED = true;
#else
inline constexpr bool SANITIZED = false;
#endif

using image_bytes = std::vector<std::uint8_t>;
using option_list = std::vector<std::pair<int, std::string>>;

inline std::string test_key(const std::string &name) {
    return std::string(MKTFS_TEST_DATA) + "/" + name;
}

class type_run : public testing::Test {
protected:
    type_run() {
        mktfs_set_backend(ttd_backend());
        EXPECT_EQ(tcrypto_init(0, nullptr), 0);  // kept up between the runs
    }
    ~type_run() override {
        tcrypto_uninit();
        ttd_opts = ttd_options{};
        ttd_register_log_fct(ttd_log_default);
    }

    // `options` live until the next call.
    void set_options(option_list options) {
        options_ = std::move(options);
        mktfs_filesystem_opts *opts = mktfs_get_filesystem_opts();
        EXPECT_EQ(ttd_opts_init(opts), 0);
        for (const auto &[letter, argument] : options_)
            EXPECT_EQ(ttd_cmdopt_handler(opts, letter, argument.c_str()), 0) << argument;
    }

    // Wraps `size` bytes that are the same in every run.  An input that has another size
    // when it comes to be read is refused.
    image_bytes build(std::size_t size, const option_list &options, std::size_t size_later = 0) {
        set_options(options);
        std::mt19937 random(1);
        std::string inner(size, '\0');
        for (char &byte : inner)
            byte = static_cast<char>(random());
        const std::string input = folder_.file("inner.img", inner);
        mktfs_io_ptr output;
        EXPECT_EQ(mktfs_io_mem_create(0, th_out(output)), 0);
        EXPECT_EQ(mktfs_filesystem_build_init(fs()), 0);
        ttd_register_log_fct(silence);
        EXPECT_EQ(mktfs_filesystem_parse(input.c_str()), 0);
        if (size_later != 0)
            std::filesystem::resize_file(input, size_later);
        EXPECT_EQ(mktfs_filesystem_build(fs(), output.get()), size_later != 0 ? EINVAL : 0);
        mktfs_filesystem_build_finit(fs());
        const std::uint8_t *bytes = mktfs_io_buf(output.get());
        return {bytes, bytes + mktfs_io_datasize(output.get())};
    }

    // With the options set.
    [[nodiscard]] int verify(image_bytes &image) {
        const log_capture log;
        const mktfs_io_ptr io = wrap(image);
        EXPECT_EQ(mktfs_filesystem_verify_init(fs()), 0);
        ttd_register_log_fct(silence);
        const int err = mktfs_get_backend()->verify(fs(), io.get());
        mktfs_filesystem_verify_finit(fs());
        return err;
    }

    // Mounts the image and reads the inner image from it.
    [[nodiscard]] int extract(image_bytes &image, image_bytes &inner) {
        const log_capture log;
        const mktfs_io_ptr io = wrap(image);
        mktfs_io_ptr output;
        EXPECT_EQ(mktfs_io_mem_create(0, th_out(output)), 0);
        EXPECT_EQ(mktfs_filesystem_extract_init(fs()), 0);
        int err = mktfs_get_backend()->mount(fs(), io.get());
        if (err == 0)
            err = mktfs_get_backend()->readfile(fs(), io.get(), nullptr, output.get());
        mktfs_filesystem_extract_finit(fs());
        const std::uint8_t *bytes = mktfs_io_buf(output.get());
        inner.assign(bytes, bytes + mktfs_io_datasize(output.get()));
        return err;
    }

private:
    [[gnu::format(printf, 2, 3)]] static int silence(int, const char *, ...) { return 0; }
    static mktfs_filesystem *fs() { return mktfs_get_filesystem(); }
    static mktfs_io_ptr wrap(image_bytes &image) {
        mktfs_io_ptr io;
        EXPECT_EQ(mktfs_io_memwrap_create(image.data(), image.size(), th_out(io)), 0);
        // Writing the bytes in place sets the data size.
        EXPECT_TRUE(image.empty() || mktfs_io_write(io.get(), 0, image.data(), image.size()) == 0);
        return io;
    }

    temp_dir folder_;
    option_list options_;
};
