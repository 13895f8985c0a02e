#include "io/io.h"

#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

template <class... Parameters, class... Arguments>
mktfs_io_ptr make(int (*create)(Parameters...), Arguments... arguments) {
    mktfs_io_ptr io;
    EXPECT_EQ(create(arguments..., th_out(io)), 0);
    return io;
}

mktfs_io_ptr open_io(const std::string &path, int flags = O_RDWR) {
    return make(mktfs_io_file_create, path.c_str(), flags, mode_t{0660});
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

TEST(Memory, GrowsToExactlyTheEndAndPrunes) {
    const mktfs_io_ptr owner = make(mktfs_io_mem_create, 0u);
    mktfs_io *io = owner.get();
    const auto holds = [io](std::uint64_t size, const std::string &bytes) {
        EXPECT_EQ(mktfs_io_size(io), size);
        EXPECT_EQ(content(io), bytes);
    };
    EXPECT_EQ(append(io, "0123456789"), 0);
    holds(10, "0123456789");
    EXPECT_EQ(append(io, "abcdefghij"), 0);
    EXPECT_EQ(mktfs_io_write(io, 2, "XY", 2), 0);
    EXPECT_EQ(append(io, "Z"), 0);
    holds(20, "01XYZ56789abcdefghij");
    EXPECT_EQ(mktfs_io_prune(io, 15, 6), ERANGE);
    EXPECT_EQ(mktfs_io_prune(io, 1, UINT64_MAX), ERANGE);
    EXPECT_EQ(mktfs_io_prune(io, -1, 1), EINVAL);
    EXPECT_EQ(mktfs_io_prune(io, 12, 2), 0);
    EXPECT_EQ(append(io, "W"), 0);  // the position, 5, went back to 3
    holds(20, "01XWZ56789abefghij");
    EXPECT_EQ(mktfs_io_prune(io, 0, 10), 0);
    EXPECT_EQ(append(io, "V"), 0);  // it does not go below 0
    holds(20, "Vbefghij");
    EXPECT_EQ(memcmp(mktfs_io_buf(io) + 8, "\0\0\0\0\0\0\0\0\0\0", 10), 0);
    EXPECT_EQ(mktfs_io_write(io, 100, "end", 3), 0);
    EXPECT_EQ(mktfs_io_datasize(io), 103u);
    mktfs_io_reset(io);
    holds(103, "");
}

TEST(Limits, OfEveryKind) {
    const temp_dir dir;
    std::string bytes = pattern(1000);
    const std::string path = dir.file("data", bytes);
    const struct {
        mktfs_io_ptr io;
        std::int64_t limit;
        std::vector<int> results;  // of the calls below
    } kinds[] = {
        {make(mktfs_io_mem_create, 1000u),
         1000,
         {ERANGE, 0, ERANGE, EINVAL, EINVAL, 0, 0, 0, 0, ERANGE, 0, ENOMEM}},
        {make(mktfs_io_memwrap_create, bytes.data(), bytes.size()),
         1000,
         {ERANGE, 0, ERANGE, EINVAL, EINVAL, 0, 0, ERANGE, ERANGE, ENOSYS, ENOSYS, ERANGE}},
        {make(mktfs_io_mmap_create, path.c_str()),
         1000,
         {EACCES, 0, ERANGE, EINVAL, EINVAL, 0, EACCES, ERANGE, ERANGE, ENOSYS, ENOSYS, ERANGE}},
        {make(mktfs_io_mmap_overflow_create, path.c_str(), 8192u),
         8192,
         {EACCES, 0, ERANGE, EINVAL, EINVAL, 0, EACCES, ERANGE, ERANGE, ENOSYS, ENOSYS, ERANGE}},
        {open_io(path), 1000, {ENOSYS, 0, EIO, EIO, EINVAL, 0, 0, 0, 0, ERANGE, 0, EINVAL}},
    };
    for (const auto &kind : kinds) {
        SCOPED_TRACE(&kind - kinds);
        mktfs_io *io = kind.io.get();
        char c = 0;
        EXPECT_EQ(mktfs_io_size(io), static_cast<std::uint64_t>(kind.limit));
        EXPECT_EQ(mktfs_io_read(io, 0, &c, 0) + mktfs_io_write(io, -2, &c, 1), 2 * EINVAL);
        EXPECT_EQ(
            (std::vector<int>{mktfs_io_prune(io, 0, 1), mktfs_io_read(io, kind.limit - 1, &c, 1),
                              mktfs_io_read(io, kind.limit, &c, 1), mktfs_io_read(io, kind.limit + 1, &c, 1),
                              mktfs_io_read(io, -1, &c, 1), mktfs_io_write(io, 0, &c, 0),
                              mktfs_io_write(io, 999, "e", 1), mktfs_io_write(io, 999, "ef", 2),
                              mktfs_io_write(io, 1002, "g", 1), mktfs_io_resize(io, 999),
                              mktfs_io_resize(io, 2000), mktfs_io_write(io, INT64_MAX, "g", 1)}),
            kind.results);
    }
    mktfs_io *none = nullptr;
    EXPECT_EQ(mktfs_io_mem_create(UINT64_MAX, &none), ENOMEM);
    EXPECT_EQ(mktfs_io_fd_create(-1, &none) + mktfs_io_mmap_create(nullptr, &none), 2 * EINVAL);
    const mktfs_io_ptr &some = kinds[0].io;
    const int answers[] = {mktfs_io_read(none, 0, &bytes, 1),
                           mktfs_io_read(some.get(), 0, nullptr, 1),
                           mktfs_io_write(none, 0, &bytes, 1),
                           mktfs_io_write(some.get(), 0, nullptr, 1),
                           mktfs_io_resize(none, 1),
                           mktfs_io_prune(none, 0, 1),
                           mktfs_io_extend(none, 1),
                           mktfs_io_mem_create(1, nullptr),
                           mktfs_io_memwrap_create(&bytes, 1, nullptr),
                           mktfs_io_fd_create(0, nullptr),
                           mktfs_io_file_create(nullptr, O_RDONLY, 0, &none),
                           mktfs_io_file_create("", O_RDONLY, 0, nullptr),
                           mktfs_io_mmap_create("", nullptr),
                           mktfs_io_mmap_overflow_create(nullptr, 1, &none),
                           mktfs_io_mmap_overflow_create("", 1, nullptr)};
    EXPECT_THAT(answers, testing::Each(EINVAL));
    EXPECT_EQ(mktfs_io_buf(none), nullptr);
    EXPECT_EQ(mktfs_io_size(none), 0u);
    EXPECT_EQ(mktfs_io_descriptor(none) + mktfs_io_descriptor(some.get()), -2);
    EXPECT_EQ(mktfs_io_close(none) + mktfs_io_close(some.get()) + mktfs_io_prune(some.get(), 0, 0), 0);
    mktfs_io_reset(none);
    mktfs_io_drop(none, 0, 1);
    mktfs_io_destroy(none);
    EXPECT_EQ(mktfs_io_buf(open_io(dir.file("empty", "")).get()), nullptr);
    EXPECT_EQ(mktfs_io_buf(open_io(path, O_WRONLY).get()), nullptr) << "cannot be mapped";
}

TEST(Mapping, ReadsZerosPastTheFileAndRefusesWhatIsNone) {
    const temp_dir dir;
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
    for (const auto &[path, error] :
         {std::pair{dir.path(), EISDIR}, {dir / "fifo", EINVAL}, {"/dev/zero", EINVAL}}) {
        log_capture log;
        mktfs_io *none = nullptr;
        EXPECT_EQ(mktfs_io_mmap_create(path.c_str(), &none), error);
        EXPECT_TRUE(log.has(3, "failed to open '" + path + "' (" + strerror(error) + ")\n"));
    }
    std::string expected = pattern(4096);
    const mktfs_io_ptr io = make(mktfs_io_mmap_overflow_create, dir.file("data", expected).c_str(), 8192u);
    expected.resize(8192, '\0');
    for (const auto &[offset, length] :
         {std::pair{0u, 8192u}, {0u, 4096u}, {4095u, 2u}, {4096u, 10u}, {5000u, 3192u}}) {
        std::string read(length, 'x');
        EXPECT_EQ(mktfs_io_read(io.get(), offset, read.data(), length), 0);
        EXPECT_EQ(read, expected.substr(offset, length)) << offset;
    }
    EXPECT_EQ(mktfs_io_datasize(io.get()), 4096u);
    const mktfs_io_ptr empty = make(mktfs_io_mmap_overflow_create, dir.file("empty", "").c_str(), 4096u);
    EXPECT_EQ(mktfs_io_buf(empty.get()), nullptr);
    EXPECT_EQ(mktfs_io_read(empty.get(), 0, expected.data(), 1), EINVAL);
    mktfs_io_drop(empty.get(), 0, 4096);
}

TEST(File, KeepsTheRememberedOffsetApartFromWrites) {
    const temp_dir dir;
    const mktfs_io_ptr io = open_io(dir.file("data", "0123456789"));
    char c[4];
    EXPECT_EQ(mktfs_io_read(io.get(), 2, c, 4), 0);
    EXPECT_EQ(append(io.get(), "ab"), 0);
    EXPECT_EQ(position(io.get()), 12);
    EXPECT_EQ(mktfs_io_datasize(io.get()), 12u);
    EXPECT_EQ(position(io.get()), 6) << "a size query goes back to the end of the last read";
    EXPECT_EQ(mktfs_io_resize(io.get(), 20), 0);
    EXPECT_EQ(position(io.get()), 6);
    EXPECT_EQ(memcmp(mktfs_io_buf(io.get()), "0123456789ab\0", 13), 0);
    EXPECT_EQ(mktfs_io_merge(io.get(), make(mktfs_io_mmap_create, dir.file("more", "cdef").c_str()).get(), 3),
              0);
    EXPECT_EQ(position(io.get()), 23) << "a merge ends like a write";
    EXPECT_EQ(mktfs_io_size(io.get()), 23u);
    EXPECT_EQ(position(io.get()), 6);
    mktfs_io_reset(io.get());
    EXPECT_EQ(position(io.get()), 0);
    const int owned = mktfs_io_descriptor(io.get());
    EXPECT_EQ(fcntl(owned, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(mktfs_io_close(make(mktfs_io_fd_create, owned).get()), 0);
    EXPECT_EQ(fcntl(owned, F_GETFD), FD_CLOEXEC) << "it was only borrowed";
    EXPECT_EQ(mktfs_io_close(io.get()), 0);
    EXPECT_EQ(fcntl(owned, F_GETFD), -1);
}

TEST(Merge, AppendsTheStartOfTheSource) {
    const temp_dir dir;
    for (const std::size_t size : {0u, 1u, 4097u, 262144u, 700001u}) {
        std::string bytes = pattern(size), target(size + 2, '\0');
        const std::string path = dir.file("source", bytes);
        const mktfs_io_ptr sources[] = {make(mktfs_io_mmap_create, path.c_str()),
                                        make(mktfs_io_mmap_overflow_create, path.c_str(), 1u << 30),
                                        open_io(path), make(mktfs_io_mem_create, 0u)};
        EXPECT_EQ(append(sources[3].get(), bytes), 0);
        for (const mktfs_io_ptr &source : sources) {
            const mktfs_io_ptr destinations[] = {open_io(dir.file("target", "")),
                                                 make(mktfs_io_mem_create, 0u),
                                                 make(mktfs_io_memwrap_create, target.data(), target.size())};
            for (const mktfs_io_ptr &destination : destinations) {
                SCOPED_TRACE(size);
                EXPECT_EQ(append(destination.get(), "<>"), 0);
                EXPECT_EQ(mktfs_io_merge(destination.get(), source.get(), UINT64_MAX), 0);
                EXPECT_TRUE(content(destination.get()) == "<>" + bytes);
            }
        }
    }
}

TEST(Merge, ReportsNullObjectsAndErrors) {
    const temp_dir dir;
    const std::string path = dir.file("source", pattern(300000));
    const mktfs_io_ptr source = make(mktfs_io_mmap_create, path.c_str());
    const mktfs_io_ptr target = open_io(dir.file("target", ""));
    std::string small(4096, '\0');
    const mktfs_io_ptr fixed = make(mktfs_io_memwrap_create, small.data(), small.size());
    EXPECT_EQ(mktfs_io_merge(target.get(), nullptr, 1), 0);
    EXPECT_EQ(mktfs_io_merge(nullptr, source.get(), 0), 0);
    EXPECT_EQ(mktfs_io_merge(nullptr, source.get(), 1), EINVAL);
    EXPECT_EQ(mktfs_io_merge(fixed.get(), source.get(), 5000), ERANGE);
    EXPECT_EQ(small, pattern(4096)) << "the chunks before the error stay";
    EXPECT_EQ(mktfs_io_merge(open_io("/dev/full").get(), source.get(), 5000), ENOSPC);
    const mktfs_io_ptr longer = make(mktfs_io_mmap_overflow_create, path.c_str(), 10000u);
    const mktfs_io_ptr memory = make(mktfs_io_mem_create, 0u), file = open_io(dir.file("part", ""));
    for (mktfs_io *into : {memory.get(), file.get()}) {
        EXPECT_EQ(mktfs_io_merge(into, longer.get(), 300000), ERANGE) << "read as far as its virtual size";
        EXPECT_EQ(content(into), pattern(8192));
    }
    ASSERT_EQ(truncate(path.c_str(), 4096u), 0);
    EXPECT_EQ(mktfs_io_merge(target.get(), source.get(), 300000), EIO) << "the file shrank under its mapping";
    EXPECT_LE(position(target.get()), 4096);
}

std::uint64_t resident_bytes() {
    std::uint64_t total = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return resident * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
}

TEST(Merge, HoldsOnlyAWindowOfAMappingInMemory) {
    const temp_dir dir;
    constexpr std::size_t size = 32u << 20;
    const mktfs_io_ptr source =
        make(mktfs_io_mmap_create, dir.file("source", std::string(size, 'x')).c_str());
    const mktfs_io_ptr target = open_io(dir.file("target", ""));
    const std::uint64_t before = resident_bytes();
    EXPECT_EQ(mktfs_io_merge(target.get(), source.get(), size), 0);
    EXPECT_LT(resident_bytes(), before + size / 4);
    EXPECT_EQ(content(source.get()), std::string(size, 'x')) << "dropped bytes can be read again";
}

TEST(Extend, MakesAHoleInARegularFileOnlyWhichASourceTells) {
    const temp_dir dir;
    const mktfs_io_ptr file = open_io(dir.file("target", "data"));
    EXPECT_EQ(mktfs_io_extend(file.get(), 1u << 30), 0);
    EXPECT_EQ(append(file.get(), "end"), 0);
    struct stat status {};
    ASSERT_EQ(fstat(mktfs_io_descriptor(file.get()), &status), 0);
    EXPECT_EQ(status.st_size, (1 << 30) + 3);
    EXPECT_LT(status.st_blocks, 1000);
    constexpr std::uint64_t end = 1u << 30;
    const mktfs_io_ptr sparse = make(mktfs_io_mmap_create, (dir / "target").c_str());
    EXPECT_EQ(mktfs_io_hole(sparse.get(), 0), 0u);
    EXPECT_EQ(mktfs_io_hole(sparse.get(), end / 2), end / 2);
    EXPECT_EQ(mktfs_io_hole(sparse.get(), end + 1) + mktfs_io_hole(sparse.get(), end + 3), 0u);
    const mktfs_io_ptr full = make(mktfs_io_mmap_create, dir.file("full", std::string(9999, '\0')).c_str());
    EXPECT_EQ(mktfs_io_hole(full.get(), 0) + mktfs_io_hole(nullptr, 0), 0u);
    EXPECT_EQ(mktfs_io_extend(file.get(), 1), ERANGE);
    EXPECT_EQ(mktfs_io_extend(file.get(), UINT64_MAX), EOPNOTSUPP);
    EXPECT_EQ(mktfs_io_extend(open_io("/dev/null").get(), 10), EOPNOTSUPP);
    EXPECT_EQ(mktfs_io_extend(make(mktfs_io_mem_create, 1u).get(), 10), EOPNOTSUPP);
}

}  // namespace
