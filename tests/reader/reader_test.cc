#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/temp_dir.h"
#include "ttd/reader.h"
#include "gtest/gtest.h"

namespace {

using reader_ptr = std::unique_ptr<ttd_reader, decltype(&ttd_reader_close)>;

std::string contents_of(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Images of 512-byte blocks: 16 hashes in a hash block, four levels over 600,064 bytes.
class Reader : public testing::Test {
protected:
    void SetUp() override {
        // Random bytes with a hole of 128 KiB.
        const std::string command =
            "cd " + dir_.path() +
            " && head -c 300032 /dev/urandom >in && truncate -s 431104 in && "
            "head -c 168960 /dev/urandom >>in && " MKTFS_PROGRAM " ttd -H sha256 -B 512 -S ed"
            "dsa-25519 -K " MKTFS_TEST_DATA "/ed25519.pem -R 5 -o image in >/dev/null";
        ASSERT_EQ(std::system(command.c_str()), 0);
        inner_ = contents_of(dir_.path() + "/in");
        image_ = dir_.path() + "/image";
        options_.size = sizeof options_;
        options_.key_path = MKTFS_TEST_DATA "/ed25519.pub.pem";
        options_.on_mismatch = [](void *arg, const ttd_reader_mismatch *) {
            ++*static_cast<std::atomic<int> *>(arg);
        };
        options_.arg = &mismatches_;
    }

    reader_ptr open() {
        ttd_reader *reader = nullptr;
        EXPECT_EQ(ttd_reader_open(image_.c_str(), &options_, &reader), 0);
        return {reader, ttd_reader_close};
    }
    int open_error() {
        auto *reader = reinterpret_cast<ttd_reader *>(1);
        const int err = ttd_reader_open(image_.c_str(), &options_, &reader);
        EXPECT_EQ(reader == nullptr, err != 0);
        ttd_reader_close(reader);
        return err;
    }
    void flip(std::size_t offset) {
        std::fstream file(image_, std::ios::in | std::ios::out | std::ios::binary);
        file.seekg(static_cast<std::streamoff>(offset));
        const auto byte = static_cast<char>(file.get() ^ 1);
        file.seekp(static_cast<std::streamoff>(offset));
        file.put(byte);
    }
    // Reads `count` ranges at random; each holds the bytes of the inner image.
    void read_at_random(ttd_reader *reader, unsigned seed, int count) const {
        std::minstd_rand random(seed);
        std::string buffer;
        for (int i = 0; i < count; ++i) {
            const std::size_t offset = random() % inner_.size();
            buffer.assign(std::min<std::size_t>(random() % 9000, inner_.size() - offset), '?');
            ASSERT_EQ(ttd_reader_read(reader, buffer.data(), buffer.size(), offset), 0);
            ASSERT_EQ(std::memcmp(buffer.data(), inner_.data() + offset, buffer.size()), 0);
        }
    }

    temp_dir dir_;
    std::string inner_;
    std::string image_;
    ttd_reader_options options_ = {};
    std::atomic<int> mismatches_ = 0;
};

TEST_F(Reader, HandsOutEveryRangeOfTheInnerImage) {
    for (const char *cache : {static_cast<const char *>(nullptr), "0", "max"}) {
        options_.cache = cache;
        const reader_ptr reader = open();
        std::string all(inner_.size(), '?');
        EXPECT_EQ(ttd_reader_read(reader.get(), all.data(), all.size(), 0), 0);
        EXPECT_TRUE(all == inner_);
        read_at_random(reader.get(), 1, 300);
        EXPECT_EQ(ttd_reader_read(reader.get(), nullptr, 0, inner_.size()), 0);
        EXPECT_EQ(ttd_reader_read(reader.get(), all.data(), 2, inner_.size() - 1), -EINVAL);
        EXPECT_EQ(ttd_reader_read(reader.get(), all.data(), 1, UINT64_MAX), -EINVAL);
    }
    EXPECT_EQ(mismatches_, 0);
}

TEST_F(Reader, TellsWhatTheSuperblockSaysAndWhatItDid) {
    const reader_ptr reader = open();
    ttd_reader_info info = {};
    info.size = sizeof info;
    ASSERT_EQ(ttd_reader_get_info(reader.get(), &info), 0);
    EXPECT_EQ(info.image_size, inner_.size());
    EXPECT_EQ(info.block_size, 512U);
    EXPECT_EQ(info.rollback, 5U);
    EXPECT_EQ(info.root_hash_size, 32U);
    char block[512];
    EXPECT_EQ(ttd_reader_read(reader.get(), block, sizeof block, 0), 0);
    ttd_reader_statistics done = {};
    done.size = sizeof done;
    ASSERT_EQ(ttd_reader_get_statistics(reader.get(), &done), 0);
    EXPECT_EQ(done.proven, 1U);
    EXPECT_EQ(done.loaded, 3U);
    done.size = info.size = 8;
    EXPECT_EQ(ttd_reader_get_statistics(reader.get(), &done), -EINVAL);
    EXPECT_EQ(ttd_reader_get_info(reader.get(), &info), -EINVAL);
}

TEST_F(Reader, RefusesExactlyWhatLiesBeneathADamagedByte) {
    const std::size_t blocks = inner_.size() / 512, level_0 = blocks / 16 + 1, level_1 = (level_0 + 15) / 16;
    const std::size_t tree_end = contents_of(image_).size() - 4096;
    const struct {
        std::size_t offset, first, count;
    } rows[] = {
        {512 * 700 + 3, 700, 1},                                   // in the hole: data
        {5 * 512, 5, 1},                                           // data
        {tree_end - (level_0 - 3) * 512, 3 * 16, 16},              // a hash block of level 0
        {tree_end - (level_0 + level_1 - 2) * 512, 2 * 256, 256},  // of level 1
    };
    const std::string good = contents_of(image_);
    for (const auto &row : rows) {
        std::ofstream(image_, std::ios::binary) << good;
        flip(row.offset);
        const reader_ptr reader = open();
        char block[512];
        for (std::size_t i = 0; i < blocks; ++i) {
            const bool bad = i >= row.first && i < row.first + row.count;
            std::memset(block, '?', sizeof block);
            ASSERT_EQ(ttd_reader_read(reader.get(), block, sizeof block, i * 512), bad ? -EIO : 0) << i;
            ASSERT_EQ(std::memcmp(block, bad ? std::string(512, '\0').data() : &inner_[i * 512], 512), 0);
        }
        EXPECT_EQ(mismatches_.exchange(0), static_cast<int>(row.count));
    }
}

TEST_F(Reader, TellsHolesThatAreProven) {
    const int file = ::open(image_.c_str(), O_RDWR);  // some file systems fill small holes
    ASSERT_EQ(::fallocate(file, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 303104, 126976), 0);
    const reader_ptr reader = open();
    std::uint64_t length = 0;
    int zeros = 0;
    EXPECT_EQ(ttd_reader_extent(reader.get(), 303104, inner_.size() - 303104, &length, &zeros), 0);
    EXPECT_TRUE(zeros == 1 && length == 126976) << zeros << ' ' << length;
    EXPECT_EQ(ttd_reader_extent(reader.get(), 0, 303104 + 700, &length, &zeros), 0);
    EXPECT_TRUE(zeros == 0 && length == 303104) << zeros << ' ' << length;
    EXPECT_EQ(ttd_reader_extent(reader.get(), 303105, 9, &length, &zeros), 0);
    EXPECT_TRUE(zeros == 0 && length == 9) << zeros << ' ' << length;
    // Zeros that the tree does not vouch for are no zeros.
    ASSERT_EQ(::fallocate(file, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0, 4096), 0);
    ::close(file);
    EXPECT_EQ(ttd_reader_extent(reader.get(), 0, 4096, &length, &zeros), 0);
    EXPECT_TRUE(zeros == 0 && length >= 512 && mismatches_ > 0);
    EXPECT_EQ(ttd_reader_extent(reader.get(), inner_.size(), 1, &length, &zeros), -EINVAL);
}

TEST_F(Reader, RefusesImagesAndOptions) {
    options_.size -= 1;
    EXPECT_EQ(open_error(), -EINVAL);
    options_.size += 1;
    options_.without_signature_check = 1;
    EXPECT_EQ(open_error(), -EINVAL) << "both";
    options_.key_path = nullptr;
    EXPECT_EQ(open_error(), 0);
    options_.without_signature_check = 0;
    EXPECT_EQ(open_error(), -EINVAL) << "neither";
    for (const char *key : {MKTFS_TEST_DATA "/rsa.pub.pem", "/no/key"}) {
        options_.key_path = key;
        EXPECT_EQ(open_error(), -EINVAL);
    }
    options_.key_path = MKTFS_TEST_DATA "/ed25519.pub.pem";
    options_.min_rollback = 6;
    EXPECT_EQ(open_error(), -EINVAL);
    options_.min_rollback = 5;
    options_.cache = "lots";
    EXPECT_EQ(open_error(), -EINVAL);
    options_.cache = nullptr;
    EXPECT_EQ(open_error(), 0);
    image_ = dir_.path();
    EXPECT_EQ(open_error(), -EISDIR);
    image_ += "/in";
    EXPECT_EQ(open_error(), -EINVAL);
    ttd_reader *reader = nullptr;
    EXPECT_EQ(ttd_reader_open_fd(-1, &options_, &reader), -EBADF);
}

TEST_F(Reader, ServesManyThreadsAtOnce) {
    options_.cache = "5%";
    const reader_ptr reader = open();
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 8; ++i)
        threads.emplace_back([&, i] { read_at_random(reader.get(), i + 1, 100); });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(mismatches_, 0);
}

}  // namespace
