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

#include "support/kept_resources.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

using results = std::vector<int>;

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

class io_test : public testing::Test {
protected:
    static off_t position(mktfs_io *io) { return lseek(mktfs_io_descriptor(io), 0, SEEK_CUR); }
    const temp_dir dir;
};

TEST_F(io_test, MemoryGrowsToExactlyTheEndAndPrunes) {
    const mktfs_io_ptr owner = make(mktfs_io_mem_create, 0u);
    mktfs_io *io = owner.get();
    const auto prune = [io](std::int64_t offset, std::uint64_t n) { return mktfs_io_prune(io, offset, n); };
    const auto expect = [io](const results &all, std::uint64_t size, const std::string &bytes) {
        EXPECT_THAT(all, testing::Each(0));
        EXPECT_EQ(mktfs_io_size(io), size);
        EXPECT_EQ(content(io), bytes);
    };
    expect({append(io, "0123456789")}, 10, "0123456789");
    expect({append(io, "abcdefghij"), mktfs_io_write(io, 2, "XY", 2), append(io, "Z")}, 20,
           "01XYZ56789abcdefghij");
    EXPECT_EQ((results{prune(15, 6), prune(1, UINT64_MAX), prune(-1, 1)}), (results{ERANGE, ERANGE, EINVAL}));
    expect({prune(12, 2), append(io, "W")}, 20, "01XWZ56789abefghij");  // the position, 5, went back to 3
    expect({prune(0, 10), append(io, "V")}, 20, "Vbefghij");            // it does not go below 0
    EXPECT_EQ(std::string(reinterpret_cast<char *>(mktfs_io_buf(io)) + 8, 10), std::string(10, '\0'));
    EXPECT_EQ(mktfs_io_write(io, 100, "end", 3), 0);
    EXPECT_EQ(mktfs_io_datasize(io), 103u);
    mktfs_io_reset(io);
    expect({}, 103, "");
}

TEST_F(io_test, EveryKindHasItsLimits) {
    std::string bytes = pattern(1000);
    const std::string path = dir.file("data", bytes);
    const results reads = {0, ERANGE, EINVAL, EINVAL};
    const results mapped = {EACCES, 0, EACCES, ERANGE, ERANGE, ENOSYS, ENOSYS, ERANGE};
    const struct {
        mktfs_io_ptr io;
        std::int64_t limit;
        results reads, others;  // of the calls below
    } kinds[] = {
        // clang-format off
        {make(mktfs_io_mem_create, 1000u), 1000, reads, {ERANGE, 0, 0, 0, 0, ERANGE, 0, ENOMEM}},
        {make(mktfs_io_memwrap_create, bytes.data(), bytes.size()), 1000, reads,
         {ERANGE, 0, 0, ERANGE, ERANGE, ENOSYS, ENOSYS, ERANGE}},
        {make(mktfs_io_mmap_create, path.c_str()), 1000, reads, mapped},
        {make(mktfs_io_mmap_overflow_create, path.c_str(), 8192u), 8192, reads, mapped},
        {open_io(path), 1000, {0, EIO, EIO, EINVAL}, {ENOSYS, 0, 0, 0, 0, ERANGE, 0, EINVAL}},
        // clang-format on
    };
    for (const auto &kind : kinds) {
        SCOPED_TRACE(&kind - kinds);
        mktfs_io *io = kind.io.get();
        char c = 0;
        EXPECT_EQ(mktfs_io_size(io), static_cast<std::uint64_t>(kind.limit));
        EXPECT_EQ((results{mktfs_io_read(io, 0, &c, 0), mktfs_io_write(io, -2, &c, 1)}),
                  (results{EINVAL, EINVAL}));
        const auto read = [&](std::int64_t offset) { return mktfs_io_read(io, offset, &c, 1); };
        const auto write = [&](std::int64_t offset, std::uint64_t n) {
            return mktfs_io_write(io, offset, "ef", n);
        };
        EXPECT_EQ((results{read(kind.limit - 1), read(kind.limit), read(kind.limit + 1), read(-1)}),
                  kind.reads);
        EXPECT_EQ(
            (results{mktfs_io_prune(io, 0, 1), write(0, 0), write(999, 1), write(999, 2), write(1002, 1),
                     mktfs_io_resize(io, 999), mktfs_io_resize(io, 2000), write(INT64_MAX, 1)}),
            kind.others);
    }
    EXPECT_EQ(mktfs_io_descriptor(kinds[0].io.get()), -1);
    EXPECT_EQ(mktfs_io_close(kinds[0].io.get()), 0);
    EXPECT_EQ(mktfs_io_hole(kinds[0].io.get(), 0), 0u);
    EXPECT_EQ(mktfs_io_buf(open_io(dir.file("empty", "")).get()), nullptr);
    EXPECT_EQ(mktfs_io_buf(open_io(path, O_WRONLY).get()), nullptr) << "cannot be mapped";
    EXPECT_EQ(mktfs_io_resize(open_io(path).get(), UINT64_MAX), EFBIG);
    EXPECT_EQ(mktfs_io_resize(open_io(path, O_RDONLY).get(), 3000), EINVAL);
    EXPECT_EQ(mktfs_io_write(open_io("/dev/null").get(), 5, "x", 1), EIO) << "it stays at its beginning";
    EXPECT_EQ(append(open_io("/dev/null").get(), "x"), 0);
}

TEST_F(io_test, NothingIsDoneWithoutAnObjectAFileOrABuffer) {
    const mktfs_io_ptr owner = make(mktfs_io_mem_create, 1u), closed = open_io(dir.file("data", "data"));
    const std::string path = dir / "data", pipe = dir / "pipe";
    mktfs_io *const io = owner.get(), *const shut = closed.get();
    mktfs_io *made = nullptr;
    char c = 0;
    ASSERT_EQ(mktfs_io_close(shut) + mkfifo(pipe.c_str(), 0600), 0);
    const int keeps_open = open(pipe.c_str(), O_RDWR);
    EXPECT_EQ(
        (results{mktfs_io_read(nullptr, 0, &c, 1), mktfs_io_read(io, 0, nullptr, 1),
                 mktfs_io_write(nullptr, 0, &c, 1), mktfs_io_write(io, 0, nullptr, 1),
                 mktfs_io_resize(nullptr, 1), mktfs_io_prune(nullptr, 0, 1), mktfs_io_extend(nullptr, 1),
                 mktfs_io_merge(nullptr, make(mktfs_io_mmap_create, path.c_str()).get(), 1),
                 mktfs_io_mem_create(1, nullptr), mktfs_io_memwrap_create(&c, 1, nullptr),
                 mktfs_io_mmap_create(path.c_str(), nullptr), mktfs_io_mmap_create(nullptr, &made),
                 mktfs_io_mmap_overflow_create(path.c_str(), 1, nullptr),
                 mktfs_io_mmap_overflow_create(nullptr, 1, &made), mktfs_io_fd_create(0, nullptr),
                 mktfs_io_fd_create(-1, &made), mktfs_io_file_create(path.c_str(), O_RDWR, 0, nullptr),
                 mktfs_io_file_create(nullptr, O_RDWR, 0, &made)}),
        results(18, EINVAL));
    EXPECT_EQ((results{mktfs_io_read(shut, 0, &c, 1), mktfs_io_write(shut, 0, &c, 1), append(shut, "x"),
                       mktfs_io_resize(shut, 9), mktfs_io_merge(shut, io, 0),
                       mktfs_io_merge(shut, make(mktfs_io_mmap_create, path.c_str()).get(), 1)}),
              (results{EBADF, EBADF, EBADF, EBADF, 0, EBADF}));
    EXPECT_EQ((results{mktfs_io_extend(shut, 9), mktfs_io_mem_create(UINT64_MAX, &made),
                       mktfs_io_fd_create(keeps_open, &made),
                       mktfs_io_file_create(pipe.c_str(), O_RDWR, 0, &made), mktfs_io_merge(io, nullptr, 1),
                       mktfs_io_close(nullptr), mktfs_io_close(shut), mktfs_io_descriptor(nullptr)}),
              (results{EOPNOTSUPP, ENOMEM, ESPIPE, ESPIPE, 0, 0, 0, -1}));
    EXPECT_EQ(mktfs_io_size(nullptr) + mktfs_io_datasize(nullptr) + mktfs_io_hole(nullptr, 0) +
                  mktfs_io_size(shut),
              0u);
    EXPECT_EQ(mktfs_io_buf(nullptr), nullptr);
    EXPECT_EQ(mktfs_io_buf(shut), nullptr);
    mktfs_io_reset(nullptr);
    mktfs_io_drop(nullptr, 0, 1);
    mktfs_io_destroy(nullptr);
    close(keeps_open);
}

TEST_F(io_test, ADestroyedObjectHoldsNothing) {
    std::string bytes = pattern(1000);
    const std::string path = dir.file("data", bytes);
    log_capture log;
    expect_nothing_kept(dir.path(), 20, [&] {
        EXPECT_NE(mktfs_io_buf(open_io(path).get()), nullptr);
        const mktfs_io_ptr objects[] = {make(mktfs_io_mem_create, 1000u),
                                        make(mktfs_io_mmap_create, path.c_str()),
                                        make(mktfs_io_memwrap_create, bytes.data(), bytes.size()),
                                        make(mktfs_io_mmap_overflow_create, path.c_str(), 8192u)};
        EXPECT_EQ(mktfs_io_resize(objects[0].get(), 2000), 0);
        mktfs_io *io = nullptr;
        EXPECT_EQ(mktfs_io_file_create((dir / "none").c_str(), O_RDWR, 0, &io), ENOENT);
        EXPECT_EQ(mktfs_io_mmap_create(dir.path().c_str(), &io), EISDIR);
        EXPECT_EQ(log.text(), "failed to open '" + dir.path() +
                                  "/none' (No such file or directory)\nfailed to open '" + dir.path() +
                                  "' (Is a directory)\n");
        log.clear();
    });
}

// What cannot be mapped: tests/cli/cases/ttd_build_refusals.case.
TEST_F(io_test, MappingReadsZerosPastTheFile) {
    std::string expected = pattern(4096);
    const mktfs_io_ptr io = make(mktfs_io_mmap_overflow_create, dir.file("data", expected).c_str(), 8192u);
    expected.resize(8192, '\0');
    for (const auto &[offset, length] : {std::pair{0u, 8192u}, {0u, 4096u}, {4095u, 2u}, {5000u, 3192u}}) {
        std::string read(length, 'x');
        EXPECT_EQ(mktfs_io_read(io.get(), offset, read.data(), length), 0);
        EXPECT_EQ(read, expected.substr(offset, length)) << offset;
    }
    EXPECT_EQ(mktfs_io_datasize(io.get()), 4096u);
    const mktfs_io_ptr empty = make(mktfs_io_mmap_overflow_create, dir.file("empty", "").c_str(), 4096u);
    EXPECT_EQ(mktfs_io_read(empty.get(), 0, expected.data(), 1), EINVAL);
}

TEST_F(io_test, AFileKeepsTheRememberedOffsetApartFromWrites) {
    const mktfs_io_ptr owner = open_io(dir.file("data", "0123456789"));
    mktfs_io *io = owner.get();
    char c[4];
    EXPECT_EQ(mktfs_io_read(io, 2, c, 4) + append(io, "ab"), 0);
    EXPECT_EQ(position(io), 12);
    EXPECT_EQ(mktfs_io_datasize(io), 12u);
    EXPECT_EQ(position(io), 6) << "a size query goes back to the end of the last read";
    EXPECT_EQ(mktfs_io_resize(io, 20), 0);
    EXPECT_EQ(position(io), 6);
    EXPECT_EQ(memcmp(mktfs_io_buf(io), "0123456789ab\0", 13), 0);
    EXPECT_EQ(mktfs_io_merge(io, make(mktfs_io_mmap_create, dir.file("more", "cdef").c_str()).get(), 3), 0);
    EXPECT_EQ(position(io), 23) << "a merge ends like a write";
    EXPECT_EQ(mktfs_io_size(io), 23u);
    mktfs_io_reset(io);
    EXPECT_EQ(position(io), 0);
    const int owned = mktfs_io_descriptor(io);
    EXPECT_EQ(mktfs_io_close(make(mktfs_io_fd_create, owned).get()), 0);
    EXPECT_EQ(fcntl(owned, F_GETFD), FD_CLOEXEC) << "it was only borrowed";
    EXPECT_EQ(mktfs_io_close(io), 0);
    EXPECT_EQ(fcntl(owned, F_GETFD), -1);
}

TEST_F(io_test, MergeAppendsTheStartOfTheSource) {
    for (const std::size_t size : {0u, 1u, 4097u, 700001u}) {
        SCOPED_TRACE(size);
        static std::uint64_t moved_bytes;
        std::string bytes = pattern(size), target(size + 2, '\0');
        const std::string path = dir.file("source", bytes);
        const mktfs_io_ptr sources[] = {make(mktfs_io_mmap_create, path.c_str()),
                                        make(mktfs_io_mmap_overflow_create, path.c_str(), 1u << 30),
                                        open_io(path)};
        for (const mktfs_io_ptr &source : sources) {
            const mktfs_io_ptr into[] = {open_io(dir.file("target", "")), make(mktfs_io_mem_create, 0u),
                                         make(mktfs_io_memwrap_create, target.data(), target.size())};
            for (const mktfs_io_ptr &destination : into) {
                moved_bytes = 0;
                EXPECT_EQ(append(destination.get(), "<>"), 0);
                EXPECT_EQ(mktfs_io_merge(destination.get(), source.get(), UINT64_MAX,
                                         [](std::uint64_t n) { moved_bytes += n; }),
                          0);
                EXPECT_TRUE(content(destination.get()) == "<>" + bytes);
                EXPECT_EQ(moved_bytes, size);
            }
        }
    }
}

TEST_F(io_test, MergeReportsErrorsAndKeepsWhatCameBefore) {
    const std::string path = dir.file("source", pattern(300000));
    const mktfs_io_ptr source = make(mktfs_io_mmap_create, path.c_str());
    const mktfs_io_ptr shorter = make(mktfs_io_mmap_overflow_create, path.c_str(), 10000u);
    const mktfs_io_ptr target = open_io(dir.file("target", "")), memory = make(mktfs_io_mem_create, 0u);
    std::string small(4096, '\0');
    EXPECT_EQ(mktfs_io_merge(make(mktfs_io_memwrap_create, small.data(), 4096u).get(), source.get(), 5000),
              ERANGE);
    EXPECT_EQ(small, pattern(4096));
    for (mktfs_io *into : {memory.get(), target.get()}) {
        EXPECT_EQ(mktfs_io_merge(into, shorter.get(), 300000), ERANGE) << "read as far as its virtual size";
        EXPECT_EQ(content(into), pattern(8192));
    }
    EXPECT_EQ(mktfs_io_merge(open_io("/dev/full").get(), source.get(), 5000), ENOSPC);
    ASSERT_EQ(truncate(path.c_str(), 4096u), 0);
    EXPECT_EQ(mktfs_io_merge(target.get(), source.get(), 300000), EIO) << "the file shrank under its mapping";
    EXPECT_LE(position(target.get()), 8192 + 4096);
}

std::uint64_t resident_bytes() {
    std::uint64_t total = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return resident * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
}

TEST_F(io_test, MergeHoldsOnlyAWindowOfAMappingInMemory) {
    const std::string bytes(32u << 20, 'x');
    const mktfs_io_ptr source = make(mktfs_io_mmap_create, dir.file("source", bytes).c_str());
    const std::uint64_t before = resident_bytes();
    EXPECT_EQ(mktfs_io_merge(open_io(dir.file("target", "")).get(), source.get(), bytes.size()), 0);
    EXPECT_LT(resident_bytes(), before + bytes.size() / 4);
    EXPECT_TRUE(content(source.get()) == bytes) << "dropped bytes can be read again";
}

TEST_F(io_test, DropLetsGoOfWholePages) {
    const struct {
        std::uint64_t offset, length;
        const char *mapped;  // of the pages, afterwards
    } rows[] = {{0, 4096, "0111"},   {1, 8191, "1011"},          {0, 4095, "1111"},    {4096, 8191, "1011"},
                {12288, 99, "1111"}, {8192, UINT64_MAX, "1100"}, {12288, 100, "1110"}, {12388, 1, "1111"}};
    const mktfs_io_ptr io = make(mktfs_io_mmap_create, dir.file("data", pattern(12388)).c_str());
    const std::uint8_t *bytes = mktfs_io_buf(io.get());
    const int pagemap = open("/proc/self/pagemap", O_RDONLY);
    for (const auto &row : rows) {
        EXPECT_EQ(content(io.get()), pattern(12388));
        mktfs_io_drop(io.get(), row.offset, row.length);
        std::uint64_t entries[4] = {};
        ASSERT_EQ(pread(pagemap, entries, sizeof entries, reinterpret_cast<std::intptr_t>(bytes) / 4096 * 8),
                  32);
        std::string mapped;
        for (const std::uint64_t entry : entries)
            mapped += entry >> 63 ? '1' : '0';
        EXPECT_EQ(mapped, row.mapped) << row.offset << " " << row.length;
    }
    close(pagemap);
}

TEST_F(io_test, ExtendMakesAHoleInARegularFileOnlyWhichASourceTells) {
    const mktfs_io_ptr file = open_io(dir.file("target", "data"));
    constexpr std::uint64_t end = 1u << 30;
    EXPECT_EQ(mktfs_io_extend(file.get(), end) + append(file.get(), "end"), 0);
    struct stat status {};
    ASSERT_EQ(fstat(mktfs_io_descriptor(file.get()), &status), 0);
    EXPECT_EQ(status.st_size, end + 3);
    EXPECT_LT(status.st_blocks, 1000);
    const mktfs_io_ptr sparse = make(mktfs_io_mmap_create, (dir / "target").c_str());
    const mktfs_io_ptr full = make(mktfs_io_mmap_create, dir.file("full", std::string(9999, '\0')).c_str());
    EXPECT_EQ(mktfs_io_hole(full.get(), 0), 0u);
    const mktfs_io_ptr small = open_io(dir.file("small", std::string(4096, 'x')));
    for (const std::uint64_t size :
         {4096u + 65536u, 2u * 4096u + 65536u + 61440u})  // and a page behind each hole
        EXPECT_EQ(mktfs_io_extend(small.get(), size) + append(small.get(), std::string(4096, 'x')), 0);
    const mktfs_io_ptr holes = make(mktfs_io_mmap_create, (dir / "small").c_str());
    for (const auto &[offset, hole] :
         {std::pair{4095u, 0u}, {4096u, 65536u}, {69631u, 1u}, {69632u, 0u}, {73728u, 0u}})
        EXPECT_EQ(mktfs_io_hole(holes.get(), offset), hole) << offset;
    for (const auto &[offset, hole] : {std::pair{0ul, 0ul}, {end / 2, end / 2}, {end + 1, 0}, {end + 3, 0}})
        EXPECT_EQ(mktfs_io_hole(sparse.get(), offset), hole) << offset;
    EXPECT_EQ(mktfs_io_extend(file.get(), 1), ERANGE);
    EXPECT_EQ(mktfs_io_extend(file.get(), UINT64_MAX), EOPNOTSUPP);
    EXPECT_EQ(mktfs_io_extend(open_io("/dev/null").get(), 10), EOPNOTSUPP);
    EXPECT_EQ(mktfs_io_extend(make(mktfs_io_mem_create, 1u).get(), 10), EOPNOTSUPP);
}

}  // namespace
