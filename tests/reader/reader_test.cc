#include "support/failing_calls.h"
#include "support/temp_dir.h"
#include "support/test.h"
#include "ttd/format.h"
#include "ttd/reader.h"
#include <sys/mman.h>

// clang-format off
FAILING(void *, _ZnamRKSt9nothrow_t, nullptr, (std::size_t size, const std::nothrow_t &tag), size, tag)
// clang-format on

namespace {

using reader_ptr = std::unique_ptr<ttd_reader, decltype(&ttd_reader_close)>;

std::string contents_of(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Images of 512-byte blocks: 16 hashes in a hash block, four levels over 1,185,792 bytes.
class Reader : public testing::Test {
protected:
    void SetUp() override {
        // Random bytes with a hole of 700 KiB.
        const std::string command =
            "cd " + dir_.path() +
            " && head -c 300032 /dev/urandom >in && truncate -s 1016832 in && "
            "head -c 168960 /dev/urandom >>in && " MKTFS_PROGRAM " ttd -H sha256 -B 512 -S ed"
            "dsa-25519 -K " MKTFS_TEST_DATA "/ed25519.pem -R 5 -o image in >/dev/null";
        ASSERT_EQ(std::system(command.c_str()), 0);
        inner_ = contents_of(dir_.path() + "/in");
        image_ = dir_.path() + "/image";
        options_.size = sizeof options_;
        options_.key_path = MKTFS_TEST_DATA "/ed25519.pub.pem";
        options_.on_mismatch = [](void *arg, const ttd_reader_mismatch *mismatch) {
            static_cast<Reader *>(arg)->last_ = *mismatch;
            ++static_cast<Reader *>(arg)->mismatches_;
        };
        options_.on_log = [](void *arg, const char *line) { static_cast<Reader *>(arg)->log_ += line; };
        options_.arg = this;
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
    ttd_reader_mismatch last_ = {};
    std::string log_;
};

TEST_F(Reader, TellsWhatTheSuperblockSaysAndWhatItDid) {
    flip(contents_of(image_).size() - 4096 + offsetof(ttd_superblock, flags) + 1);
    options_.key_path = nullptr;
    options_.without_signature_check = 1;
    const reader_ptr reader = open();
    const std::string bytes = contents_of(image_);
    ttd_superblock superblock;
    std::memcpy(&superblock, &bytes[bytes.size() - 4096], sizeof superblock);
    ttd_reader_info info = {};
    info.size = sizeof info;
    ASSERT_EQ(ttd_reader_get_info(reader.get(), &info), 0);
    EXPECT_EQ(info.size, sizeof info);
    EXPECT_EQ(info.image_size, inner_.size());
    EXPECT_EQ(info.block_size, 512U);
    EXPECT_EQ(info.flags, 256U);
    EXPECT_EQ(info.rollback, 5U);
    EXPECT_EQ(info.format_version, 1U);
    EXPECT_EQ(info.root_hash_size, 32U);
    EXPECT_EQ(std::memcmp(info.root_hash, superblock.roothash, 32), 0);
    char block[512];
    flip(0);
    for (const std::uint64_t at : {0U, 512U, 1024U, 600U})
        EXPECT_EQ(ttd_reader_read(reader.get(), block, at == 600 ? 424 : 512, at), at == 0 ? -EIO : 0);
    std::filesystem::resize_file(image_, 9000);
    EXPECT_EQ(ttd_reader_read(reader.get(), block, 512, 9216), -EIO);
    ttd_reader_statistics done = {};
    done.size = sizeof done;
    ASSERT_EQ(ttd_reader_get_statistics(reader.get(), &done), 0);
    EXPECT_EQ(done.proven, 3U);
    EXPECT_EQ(done.refused, 2U);
    EXPECT_EQ(done.loaded, 3U);
    EXPECT_EQ(done.cached, 3U);
    done.size = info.size = 8;
    EXPECT_EQ(ttd_reader_get_statistics(reader.get(), &done), -EINVAL);
    EXPECT_EQ(ttd_reader_get_info(reader.get(), &info), -EINVAL);
    EXPECT_EQ(ttd_reader_get_info(reader.get(), nullptr), -EINVAL);
}

TEST_F(Reader, RefusesExactlyWhatLiesBeneathADamagedByte) {
    const std::size_t blocks = inner_.size() / 512, level_0 = blocks / 16 + 1, level_1 = (level_0 + 15) / 16;
    const std::size_t tree_end = contents_of(image_).size() - 4096;
    const struct {
        std::size_t offset, first, count;
        std::uint32_t is_data, level;
    } rows[] = {
        {512 * 700, 700, 1, 1, 0},                                       // in the hole: data
        {5 * 512, 5, 1, 1, 0},                                           // data
        {tree_end - (level_0 - 3) * 512, 3 * 16, 16, 0, 0},              // a hash block of level 0
        {tree_end - (level_0 + level_1 - 2) * 512, 2 * 256, 256, 0, 1},  // of level 1
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
        EXPECT_EQ(last_.offset, row.offset);
        EXPECT_EQ(last_.block, row.first + row.count - 1);
        EXPECT_EQ(last_.is_data, row.is_data);
        EXPECT_EQ(last_.level, row.level);
    }
}

TEST_F(Reader, TellsHolesThatAreProven) {
    constexpr std::uint64_t HOLE = 712704;
    const int file = ::open(image_.c_str(), O_RDWR);  // some file systems fill small holes
    ASSERT_EQ(::fallocate(file, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 303104, HOLE), 0);
    const reader_ptr reader = open();
    std::uint64_t length = 0;
    int zeros = 0;
    const std::uint64_t rows[][4] = {
        {303104, inner_.size() - 303104, 1, HOLE},  // offset, room, zeros, length
        {303104, 700, 1, 700},
        {0, 303104 + 700, 0, 303104},
        {303105, 9, 0, 9}};
    for (const auto &row : rows) {
        EXPECT_EQ(ttd_reader_extent(reader.get(), row[0], row[1], &length, &zeros), 0);
        EXPECT_TRUE(zeros == static_cast<int>(row[2]) && length == row[3]) << zeros << ' ' << length;
    }
    // Zeros that the tree does not vouch for are no zeros.
    ASSERT_EQ(::fallocate(file, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0, 4096), 0);
    ::close(file);
    EXPECT_EQ(ttd_reader_extent(reader.get(), 0, 4096, &length, &zeros), 0);
    EXPECT_TRUE(zeros == 0 && length >= 512 && mismatches_ > 0);
    EXPECT_EQ(ttd_reader_extent(reader.get(), inner_.size(), 1, &length, &zeros), -EINVAL);
    EXPECT_EQ(ttd_reader_extent(reader.get(), 0, 0, &length, &zeros), -EINVAL);
}

TEST_F(Reader, RefusesImagesAndOptions) {
    const std::string good = image_, short_file = dir_.file("short", std::string(4095, '\0'));
    const struct {
        void (*spoil)(ttd_reader_options &options);
        int err;
        const char *log = "";
        std::string image = {};
    } rows[] = {
        {[](auto &) {}, 0},
        {[](auto &options) { options.min_rollback = 5; }, 0},
        {[](auto &options) { options.size -= 1; }, -EINVAL},
        {[](auto &options) { options.without_signature_check = 1; }, -EINVAL},
        {[](auto &options) { options.key_path = nullptr; }, -EINVAL},
        {[](auto &options) { options.key_path = nullptr, options.without_signature_check = 1; }, 0},
        {[](auto &options) { options.key_path = MKTFS_TEST_DATA "/rsa.pub.pem"; }, -EINVAL,
         "failed to load key"},
        {[](auto &options) { options.key_path = "/no/key"; }, -EINVAL, "failed to load key"},
        {[](auto &options) { options.min_rollback = 6; }, -EINVAL, "the anti-rollback version is too low"},
        {[](auto &options) { options.cache = "lots"; }, -EINVAL, "the cache size is none"},
        {[](auto &) {}, -EISDIR, "", dir_.path()},
        {[](auto &) {}, -EINVAL, "", "/dev/null"},
        {[](auto &) {}, -ENOENT, "", "/no/image"},
        {[](auto &) {}, -EINVAL, "", short_file},
        {[](auto &) {}, -EINVAL, "not a ttd image of a known version", dir_.path() + "/in"},
        {[](auto &) {}, -EINVAL, "not a ttd image of a known version",
         dir_.file("zeros", std::string(4096, '\0'))},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(&row - rows);
        const ttd_reader_options before = options_;
        row.spoil(options_);
        image_ = row.image.empty() ? good : row.image;
        log_.clear();
        EXPECT_EQ(open_error(), row.err);
        EXPECT_TRUE(log_.find(row.log) != log_.npos && log_.empty() == (*row.log == 0)) << log_;
        options_ = before;
    }
    image_ = good;
    options_.key_path = nullptr;
    options_.without_signature_check = 1;
    const char *const unknown = "not a ttd image of a known version", *const no_size =
                                                                          "the block size is none";
    for (const auto &[at, line] : {std::pair{offsetof(ttd_superblock, magic), unknown},
                                   {offsetof(ttd_superblock, version), unknown},
                                   {offsetof(ttd_superblock, blksize), no_size}}) {
        log_.clear();
        flip(contents_of(image_).size() - 4096 + at);
        EXPECT_EQ(open_error(), -EINVAL);
        EXPECT_EQ(log_, line);
        flip(contents_of(image_).size() - 4096 + at);
    }
    flip(contents_of(image_).size() - 4096 + offsetof(ttd_superblock, sig));
    EXPECT_EQ(open_error(), 0);
    options_.key_path = MKTFS_TEST_DATA "/ed25519.pub.pem";
    options_.without_signature_check = 0;
    log_.clear();
    EXPECT_EQ(open_error(), -EINVAL);
    EXPECT_EQ(log_, "the signature of the superblock does not prove");
    ttd_reader *reader = nullptr;
    EXPECT_THAT(with_each_null(ttd_reader_open, image_.c_str(), &options_, &reader),
                testing::ElementsAre(-EINVAL));
    EXPECT_EQ(ttd_reader_open_fd(-1, &options_, &reader), -EBADF);
}

TEST_F(Reader, KeepsAFileOfItsOwnForReading) {
    const int file = ::open(image_.c_str(), O_RDONLY);
    ttd_reader *reader = nullptr;
    ASSERT_EQ(ttd_reader_open_fd(file, &options_, &reader), 0);
    const reader_ptr given(reader, ttd_reader_close), named = open();
    ::close(file);
    read_at_random(reader, 1, 10);
    int found = 0;
    for (int own = 3; own < 100; ++own) {
        std::error_code none;
        if (std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(own), none) == image_) {
            EXPECT_EQ(::fcntl(own, F_GETFL) & O_ACCMODE, O_RDONLY);
            EXPECT_EQ(::fcntl(own, F_GETFD), FD_CLOEXEC);
            ++found;
        }
    }
    EXPECT_EQ(found, 2);
}

// Each step that needs memory works or tells.
TEST_F(Reader, SaysSoWithoutMemory) {
    std::set<int> opens, reads, extents;
    for (int call = 1; call < 300; ++call) {
        fails_at = call;
        opens.insert(open_error());
        fails_at = 0;
        if (call > 30)
            continue;
        const reader_ptr reader = open();
        std::string data(700, '?');
        std::uint64_t length = 0;
        int zeros = 0;
        fails_at = call;
        extents.insert(ttd_reader_extent(reader.get(), 0, 9, &length, &zeros));
        fails_at = call;
        const int err = *reads.insert(ttd_reader_read(reader.get(), data.data(), data.size(), 5)).first;
        fails_at = 0;
        EXPECT_EQ(data, err == 0 ? inner_.substr(5, 700) : std::string(700, '\0'));
    }
    for (const auto &results : {opens, reads})
        EXPECT_THAT(results, testing::IsSupersetOf({0, -ENOMEM}));
}

TEST_F(Reader, HandsOutEveryRangeToManyThreadsAtOnce) {
    for (const char *cache : {static_cast<const char *>(nullptr), "0", "1", "8", "5%", "max"}) {
        options_.cache = cache;
        const reader_ptr reader = open();
        std::vector<std::thread> threads;
        for (unsigned i = 0; i < 8; ++i)
            threads.emplace_back([&, i] { read_at_random(reader.get(), i + 1, 40); });
        for (std::thread &thread : threads)
            thread.join();
        std::string all(inner_.size(), '?');
        EXPECT_EQ(ttd_reader_read(reader.get(), all.data(), all.size(), 0), 0);
        EXPECT_TRUE(all == inner_);
        EXPECT_EQ(ttd_reader_read(reader.get(), nullptr, 0, inner_.size()), 0);
        EXPECT_EQ(ttd_reader_read(reader.get(), all.data(), 2, inner_.size() - 1), -EINVAL);
        EXPECT_EQ(ttd_reader_read(reader.get(), all.data(), 1, UINT64_MAX), -EINVAL);
    }
    EXPECT_EQ(mismatches_, 0);
}

}  // namespace
