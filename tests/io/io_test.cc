#include "io/io.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

mktfs_io_ptr mem(std::uint64_t size) {
    mktfs_io_ptr io;
    EXPECT_EQ(mktfs_io_mem_create(size, th_out(io)), 0);
    return io;
}

mktfs_io_ptr wrap(std::string &bytes) {
    mktfs_io_ptr io;
    EXPECT_EQ(mktfs_io_memwrap_create(bytes.data(), bytes.size(), th_out(io)), 0);
    return io;
}

mktfs_io_ptr map(const std::string &path) {
    mktfs_io_ptr io;
    EXPECT_EQ(mktfs_io_mmap_create(path.c_str(), th_out(io)), 0);
    return io;
}

mktfs_io_ptr overflow(const std::string &path, std::uint64_t virtual_size) {
    mktfs_io_ptr io;
    EXPECT_EQ(mktfs_io_mmap_overflow_create(path.c_str(), virtual_size, th_out(io)), 0);
    return io;
}

mktfs_io_ptr open_io(const std::string &path, int flags = O_RDWR) {
    mktfs_io_ptr io;
    EXPECT_EQ(mktfs_io_file_create(path.c_str(), flags, 0660, th_out(io)), 0);
    return io;
}

int append(mktfs_io *io, std::string_view bytes) {
    return mktfs_io_write(io, -1, bytes.data(), bytes.size());
}

std::string content(mktfs_io *io) {
    std::string bytes(mktfs_io_datasize(io), '\0');
    EXPECT_EQ(bytes.empty() ? 0 : mktfs_io_read(io, 0, bytes.data(), bytes.size()), 0);
    return bytes;
}

std::string pattern(std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(i * 7 + i / 251);
    return bytes;
}

off_t position(mktfs_io *io) {
    return lseek(mktfs_io_descriptor(io), 0, SEEK_CUR);
}

TEST(Memory, GrowsToExactlyTheEndOfAWrite) {
    const mktfs_io_ptr io = mem(0);
    EXPECT_EQ(append(io.get(), "0123456789"), 0);
    EXPECT_EQ(mktfs_io_size(io.get()), 10u);
    EXPECT_EQ(append(io.get(), "abcdefghij"), 0);
    EXPECT_EQ(mktfs_io_size(io.get()), 20u);
    EXPECT_EQ(mktfs_io_write(io.get(), 2, "XY", 2), 0);
    EXPECT_EQ(mktfs_io_datasize(io.get()), 20u);
    EXPECT_EQ(append(io.get(), "Z"), 0) << "an append follows the last write, not the data";
    EXPECT_EQ(content(io.get()), "01XYZ56789abcdefghij");
    EXPECT_EQ(mktfs_io_write(io.get(), 100, "end", 3), 0);
    EXPECT_EQ(mktfs_io_size(io.get()), 103u);
    EXPECT_EQ(mktfs_io_datasize(io.get()), 103u);
    mktfs_io_reset(io.get());
    EXPECT_EQ(mktfs_io_datasize(io.get()), 0u);
    EXPECT_EQ(mktfs_io_size(io.get()), 103u);
    EXPECT_EQ(memcmp(mktfs_io_buf(io.get()), "01XYZ", 5), 0);
}

TEST(Memory, PruneClosesTheGapAndMovesThePositionBack) {
    const mktfs_io_ptr io = mem(40);
    EXPECT_EQ(append(io.get(), "aaaaaaaaaabbbbbbbbbbcccccccccc"), 0);
    EXPECT_EQ(mktfs_io_prune(io.get(), 25, 6), ERANGE);
    EXPECT_EQ(mktfs_io_prune(io.get(), 1, UINT64_MAX), ERANGE);
    EXPECT_EQ(mktfs_io_prune(io.get(), -1, 1), EINVAL);
    EXPECT_EQ(mktfs_io_prune(io.get(), 0, 10), 0);
    EXPECT_EQ(content(io.get()), "bbbbbbbbbbcccccccccc");
    EXPECT_EQ(memcmp(mktfs_io_buf(io.get()) + 20, "\0\0\0\0\0\0\0\0\0\0", 10), 0);
    EXPECT_EQ(append(io.get(), "d"), 0);
    EXPECT_EQ(content(io.get()), "bbbbbbbbbbccccccccccd");
    EXPECT_EQ(mktfs_io_write(io.get(), 0, "x", 1), 0);
    EXPECT_EQ(mktfs_io_prune(io.get(), 10, 11), 0) << "the position, 1, becomes 0";
    EXPECT_EQ(append(io.get(), "YZ"), 0);
    EXPECT_EQ(content(io.get()), "YZbbbbbbbb");
}

// The answers of every kind to accesses around its limits: 1000 bytes of data, or
// 8192 for the kind whose reads go past the file.
TEST(Limits, OfEveryKind) {
    const temp_dir dir;
    std::string bytes = pattern(1000);
    const std::string path = dir.file("data", bytes);
    const struct {
        const char *name;
        mktfs_io_ptr io;
        std::int64_t limit;
        int write_inside, write_across, write_outside, resize_up, resize_down, prune, past_limit;
    } kinds[] = {
        {"memory", mem(1000), 1000, 0, 0, 0, 0, ERANGE, ERANGE, EINVAL},
        {"wrap", wrap(bytes), 1000, 0, ERANGE, ERANGE, ENOSYS, ENOSYS, ERANGE, EINVAL},
        {"mapping", map(path), 1000, EACCES, ERANGE, ERANGE, ENOSYS, ENOSYS, EACCES, EINVAL},
        {"overflow", overflow(path, 8192), 8192, EACCES, ERANGE, ERANGE, ENOSYS, ENOSYS, EACCES, EINVAL},
        {"file", open_io(path), 1000, 0, 0, 0, 0, ERANGE, ENOSYS, EIO},
    };
    for (const auto &kind : kinds) {
        SCOPED_TRACE(kind.name);
        mktfs_io *io = kind.io.get();
        char c = 0;
        const int across = std::string_view(kind.name) == "file" ? EIO : ERANGE;
        EXPECT_EQ(mktfs_io_size(io), static_cast<std::uint64_t>(kind.limit));
        EXPECT_EQ(mktfs_io_prune(io, 0, 1), kind.prune);
        EXPECT_EQ(mktfs_io_read(io, kind.limit - 1, &c, 1), 0);
        EXPECT_EQ(mktfs_io_read(io, kind.limit, &c, 1), across);
        EXPECT_EQ(mktfs_io_read(io, kind.limit + 1, &c, 1), kind.past_limit);
        EXPECT_EQ(mktfs_io_read(io, -1, &c, 1), EINVAL);
        EXPECT_EQ(mktfs_io_read(io, 0, &c, 0), EINVAL);
        EXPECT_EQ(mktfs_io_read(io, 0, nullptr, 1), EINVAL);
        EXPECT_EQ(mktfs_io_write(io, 0, nullptr, 1), EINVAL);
        EXPECT_EQ(mktfs_io_write(io, -2, &c, 1), EINVAL);
        EXPECT_EQ(mktfs_io_write(io, 0, &c, 0), 0);
        EXPECT_EQ(mktfs_io_write(io, 999, "e", 1), kind.write_inside);
        EXPECT_EQ(mktfs_io_resize(io, 999), kind.resize_down);
        EXPECT_EQ(mktfs_io_write(io, 999, "ef", 2), kind.write_across);
        EXPECT_EQ(mktfs_io_write(io, 1002, "g", 1), kind.write_outside);
        EXPECT_EQ(mktfs_io_resize(io, 2000), kind.resize_up);
        EXPECT_NE(mktfs_io_write(io, INT64_MAX, "g", 1), 0) << "an end that wraps";
    }
}

TEST(Limits, NullObjects) {
    char c = 0;
    EXPECT_EQ(mktfs_io_buf(nullptr), nullptr);
    EXPECT_EQ(mktfs_io_read(nullptr, 0, &c, 1), EINVAL);
    EXPECT_EQ(mktfs_io_write(nullptr, 0, &c, 1), EINVAL);
    EXPECT_EQ(mktfs_io_datasize(nullptr) + mktfs_io_size(nullptr), 0u);
    EXPECT_EQ(mktfs_io_resize(nullptr, 1), EINVAL);
    EXPECT_EQ(mktfs_io_prune(nullptr, 0, 1), EINVAL);
    EXPECT_EQ(mktfs_io_descriptor(nullptr), -1);
    mktfs_io_reset(nullptr);
    mktfs_io_drop(nullptr, 0, 1);
    mktfs_io_destroy(nullptr);
    mktfs_io_ptr io;
    EXPECT_EQ(mktfs_io_mem_create(UINT64_MAX, th_out(io)), ENOMEM);
    EXPECT_EQ(mktfs_io_fd_create(-1, th_out(io)), EINVAL);
    EXPECT_EQ(mktfs_io_mmap_create(nullptr, th_out(io)), EINVAL);
}

TEST(Mapping, ReadsZerosPastTheFile) {
    const temp_dir dir;
    const std::string bytes = pattern(1000);
    const mktfs_io_ptr io = overflow(dir.file("data", bytes), 8192);
    std::string expected = bytes;
    expected.resize(8192, '\0');
    for (const auto &[offset, length] :
         {std::pair{0, 4096}, {0, 1000}, {0, 8192}, {999, 2}, {1000, 10}, {5000, 3192}}) {
        SCOPED_TRACE(offset);
        std::string read(static_cast<std::size_t>(length), 'x');
        EXPECT_EQ(mktfs_io_read(io.get(), offset, read.data(), read.size()), 0);
        EXPECT_EQ(read, expected.substr(static_cast<std::size_t>(offset), read.size()));
    }
    EXPECT_EQ(mktfs_io_datasize(io.get()), 1000u);
}

TEST(Mapping, OfAnEmptyFileHasNoBytes) {
    const temp_dir dir;
    const std::string path = dir.file("empty", "");
    const mktfs_io_ptr kinds[] = {map(path), overflow(path, 4096)};
    for (const mktfs_io_ptr &io : kinds) {
        char c = 0;
        EXPECT_EQ(mktfs_io_buf(io.get()), nullptr);
        EXPECT_EQ(mktfs_io_read(io.get(), 0, &c, 1), EINVAL);
        EXPECT_EQ(mktfs_io_write(io.get(), 0, &c, 0), EINVAL);
        EXPECT_EQ(mktfs_io_prune(io.get(), 0, 0), 0);
        mktfs_io_drop(io.get(), 0, 4096);
    }
}

TEST(Mapping, RefusesWhatIsNoFileWithoutWaiting) {
    const temp_dir dir;
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
    const struct {
        std::string path;
        int error;
    } cases[] = {{dir.path(), EISDIR}, {dir / "fifo", EINVAL}, {"/dev/zero", EINVAL}, {dir / "none", ENOENT}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.path);
        log_capture log;
        mktfs_io *io = nullptr;
        EXPECT_EQ(mktfs_io_mmap_create(c.path.c_str(), &io), c.error);
        EXPECT_EQ(io, nullptr);
        EXPECT_TRUE(log.has(3, "failed to open '" + c.path + "' (" + strerror(c.error) + ")\n"))
            << log.text();
    }
}

TEST(File, KeepsTheRememberedOffsetApartFromWrites) {
    const temp_dir dir;
    const mktfs_io_ptr io = open_io(dir.file("data", "0123456789"));
    char c[4];
    EXPECT_EQ(mktfs_io_read(io.get(), 2, c, 4), 0);
    EXPECT_EQ(std::string(c, 4), "2345");
    EXPECT_EQ(append(io.get(), "ab"), 0);
    EXPECT_EQ(position(io.get()), 12);
    EXPECT_EQ(mktfs_io_datasize(io.get()), 12u);
    EXPECT_EQ(position(io.get()), 6) << "a size query goes back to the end of the last read";
    EXPECT_EQ(mktfs_io_resize(io.get(), 20), 0);
    EXPECT_EQ(position(io.get()), 6);
    errno = 0;
    EXPECT_EQ(mktfs_io_read(io.get(), 18, c, 4), EIO);
    mktfs_io_reset(io.get());
    EXPECT_EQ(position(io.get()), 0);
    ASSERT_NE(mktfs_io_buf(io.get()), nullptr);
    EXPECT_EQ(memcmp(mktfs_io_buf(io.get()), "0123456789ab\0", 13), 0);
}

TEST(File, OwnsOnlyWhatItOpened) {
    const temp_dir dir;
    const std::string path = dir.file("data", "x");
    const int borrowed = open(path.c_str(), O_RDONLY);
    mktfs_io *io = nullptr;
    ASSERT_EQ(mktfs_io_fd_create(borrowed, &io), 0);
    EXPECT_EQ(mktfs_io_close(io), 0);
    mktfs_io_destroy(io);
    EXPECT_NE(fcntl(borrowed, F_GETFD), -1);
    close(borrowed);

    io = open_io(path).release();
    const int owned = mktfs_io_descriptor(io);
    EXPECT_EQ(fcntl(owned, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(mktfs_io_close(io), 0);
    EXPECT_EQ(fcntl(owned, F_GETFD), -1);
    mktfs_io_destroy(io);

    log_capture log;
    EXPECT_EQ(mktfs_io_file_create((dir / "no/file").c_str(), O_RDWR | O_CREAT, 0660, &io), ENOENT);
    EXPECT_EQ(io, nullptr);
    EXPECT_TRUE(log.has(3, "failed to open '" + dir / "no/file" + "' (No such file or directory)\n"));
}

// Every pair of kinds, at lengths around the sizes of the pieces.
TEST(Merge, AppendsTheStartOfTheSource) {
    const temp_dir dir;
    for (const std::size_t size : {0u, 1u, 4096u, 4097u, 262144u, 2500001u}) {
        std::string bytes = pattern(size), target(size + 2, '\0');
        const std::string path = dir.file("source", bytes);
        const mktfs_io_ptr sources[] = {map(path), overflow(path, 1u << 30), open_io(path), mem(0)};
        EXPECT_EQ(append(sources[3].get(), bytes), 0);
        for (const mktfs_io_ptr &source : sources) {
            const mktfs_io_ptr destinations[] = {open_io(dir.file("target", "")), mem(0), wrap(target)};
            for (const mktfs_io_ptr &destination : destinations) {
                SCOPED_TRACE(size);
                EXPECT_EQ(append(destination.get(), "<>"), 0);
                EXPECT_EQ(mktfs_io_merge(destination.get(), source.get(), UINT64_MAX), 0);
                EXPECT_TRUE(content(destination.get()) == "<>" + bytes);
            }
        }
    }
}

TEST(Merge, CutsToTheLengthAndKeepsTheRememberedOffset) {
    const temp_dir dir;
    const mktfs_io_ptr source = map(dir.file("source", "abcdef"));
    const mktfs_io_ptr destination = open_io(dir.file("target", "0123"));
    char c[2];
    EXPECT_EQ(mktfs_io_read(destination.get(), 0, c, 2), 0);
    EXPECT_EQ(mktfs_io_merge(destination.get(), source.get(), 3), 0);
    EXPECT_EQ(position(destination.get()), 7);
    EXPECT_EQ(mktfs_io_size(destination.get()), 7u);
    EXPECT_EQ(position(destination.get()), 2);
    EXPECT_EQ(content(destination.get()), "0123abc");
}

TEST(Merge, ReportsNullObjectsAndErrors) {
    const temp_dir dir;
    const std::string path = dir.file("source", pattern(300000));
    const mktfs_io_ptr source = map(path);
    const mktfs_io_ptr target = open_io(dir.file("target", ""));
    std::string small(4096, '\0');
    EXPECT_EQ(mktfs_io_merge(target.get(), nullptr, 1), 0);
    EXPECT_EQ(mktfs_io_merge(nullptr, source.get(), 0), 0);
    EXPECT_EQ(mktfs_io_merge(nullptr, source.get(), 1), EINVAL);
    EXPECT_EQ(mktfs_io_merge(wrap(small).get(), source.get(), 5000), ERANGE);
    EXPECT_EQ(small, pattern(4096)) << "the chunks before the error stay";
    EXPECT_EQ(mktfs_io_merge(open_io("/dev/full").get(), source.get(), 5000), ENOSPC);
    EXPECT_EQ(mktfs_io_merge(open_io(path, O_RDONLY).get(), source.get(), 1), EBADF);
    ASSERT_EQ(truncate(path.c_str(), 4096), 0);
    EXPECT_EQ(mktfs_io_merge(target.get(), source.get(), 300000), EIO) << "the file shrank under its mapping";
    EXPECT_EQ(position(target.get()), 4096);
}

std::uint64_t resident_bytes() {
    std::uint64_t total = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return resident * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
}

TEST(Merge, HoldsOnlyAWindowOfAMappingInMemory) {
    const temp_dir dir;
    constexpr std::size_t size = 32u << 20;
    const mktfs_io_ptr source = map(dir.file("source", std::string(size, 'x')));
    const mktfs_io_ptr target = open_io(dir.file("target", ""));
    const std::uint64_t before = resident_bytes();
    EXPECT_EQ(mktfs_io_merge(target.get(), source.get(), size), 0);
    EXPECT_LT(resident_bytes(), before + size / 4);
    volatile std::uint8_t sum = 0;
    for (std::size_t i = 0; i < size; i += 4096)
        sum = static_cast<std::uint8_t>(sum + mktfs_io_buf(source.get())[i]);
    EXPECT_GT(resident_bytes(), before + size / 2) << "reading again works, and maps again";
    mktfs_io_drop(source.get(), 100, size - 100);
    EXPECT_LT(resident_bytes(), before + size / 4);
}

TEST(Extend, MakesAHoleInARegularFileOnly) {
    const temp_dir dir;
    const mktfs_io_ptr file = open_io(dir.file("target", "data"));
    EXPECT_EQ(mktfs_io_extend(file.get(), 1u << 30), 0);
    EXPECT_EQ(append(file.get(), "end"), 0);
    struct stat status {};
    ASSERT_EQ(fstat(mktfs_io_descriptor(file.get()), &status), 0);
    EXPECT_EQ(status.st_size, (1 << 30) + 3);
    EXPECT_LT(status.st_blocks, 1000);
    char c = 'x';
    EXPECT_EQ(mktfs_io_read(file.get(), 4, &c, 1), 0);
    EXPECT_EQ(c, '\0');
    EXPECT_EQ(mktfs_io_extend(file.get(), 1), ERANGE);
    EXPECT_EQ(mktfs_io_extend(file.get(), UINT64_MAX), EOPNOTSUPP);
    EXPECT_EQ(mktfs_io_extend(open_io("/dev/null").get(), 10), EOPNOTSUPP);
    EXPECT_EQ(mktfs_io_extend(mem(1).get(), 10), EOPNOTSUPP);
    EXPECT_EQ(mktfs_io_extend(nullptr, 10), EINVAL);
}

}  // namespace
