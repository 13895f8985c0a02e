#include "ttd/reader.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>

#include "tcrypto/tcrypto.h"
#include "ttd/caches.h"
#include "ttd/engine_log.h"
#include "ttd/hash.h"
#include "ttd/image_file.h"
#include "ttd/signature.h"
#include "ttd/superblock.h"
#include "ttd/verify_range.h"

namespace {

// Data is read and proven in pieces of at most this many bytes, while they are in the
// processor's cache.
constexpr std::uint64_t PIECE_SIZE = 256 * 1024;
constexpr std::size_t LINE_SIZE = 512;
constexpr unsigned IDLE_DIGESTS = 64;

// ---- The engine has one log function for the process; each call of a reader says
// whose lines these are.

struct log_target {
    void (*write)(void *arg, const char *line) = nullptr;
    void *arg = nullptr;
};

thread_local const log_target *current_target = nullptr;

class log_scope {
public:
    explicit log_scope(const log_target &target) : before_(current_target) { current_target = &target; }
    log_scope(const log_scope &) = delete;
    log_scope &operator=(const log_scope &) = delete;
    ~log_scope() { current_target = before_; }

private:
    const log_target *before_;
};

// Errors and warnings, a line each; some of the engine's texts lack a line end.
[[gnu::format(printf, 2, 3)]] int route_log(int level, const char *format, ...) {
    const log_target *target = current_target;
    if (level < TTD_LOG_WARN || !target || !target->write)
        return 0;
    char line[LINE_SIZE];
    va_list args;
    va_start(args, format);
    const int length = std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
    line[std::strcspn(line, "\n")] = '\0';
    target->write(target->arg, line);
    return length;
}

// ---- Digest contexts, one for each read that is under way

// No lock: every thread begins at a place of its own.
class digest_pool {
public:
    ~digest_pool() { clear(); }

    // Null when memory is out.
    [[nodiscard]] tcrypto_ctx *take(const char *name) {
        for (unsigned i = 0; i < IDLE_DIGESTS; ++i)
            if (tcrypto_ctx *idle = place(i).exchange(nullptr, std::memory_order_acquire))
                return idle;
        tcrypto_ctx *fresh = nullptr;
        return tcrypto_digest_request(name, nullptr, 0, &fresh) == TCRYPTO_OK ? fresh : nullptr;
    }
    void give_back(tcrypto_ctx *digest) {
        for (unsigned i = 0; i < IDLE_DIGESTS; ++i) {
            tcrypto_ctx *none = nullptr;
            if (place(i).compare_exchange_strong(none, digest, std::memory_order_release,
                                                 std::memory_order_relaxed))
                return;
        }
        tcrypto_release_ctx(digest);
    }
    void clear() {
        for (slot &each : slots_)
            tcrypto_release_ctx(each.idle.exchange(nullptr));
    }

private:
    struct alignas(64) slot {  // a cache line
        std::atomic<tcrypto_ctx *> idle = nullptr;
    };

    [[nodiscard]] std::atomic<tcrypto_ctx *> &place(unsigned i) {
        static std::atomic<unsigned> threads = 0;
        thread_local const unsigned own = threads++;
        return slots_[(own + i) % IDLE_DIGESTS].idle;
    }

    slot slots_[IDLE_DIGESTS];
};

class borrowed_digest {
public:
    borrowed_digest(digest_pool &pool, const char *name) : pool_(pool), digest_(pool.take(name)) {}
    borrowed_digest(const borrowed_digest &) = delete;
    borrowed_digest &operator=(const borrowed_digest &) = delete;
    ~borrowed_digest() {
        if (digest_)
            pool_.give_back(digest_);
    }
    [[nodiscard]] tcrypto_ctx *get() const { return digest_; }

private:
    digest_pool &pool_;
    tcrypto_ctx *const digest_;
};

}  // namespace

struct ttd_reader {
    ttd_image_file image;
    ttd_ctx engine;
    ttd_io tree_io;  // counts what is read of the tree
    ttd_io data_io;
    digest_pool digests;
    log_target log;
    void (*on_mismatch)(void *arg, const ttd_reader_mismatch *mismatch) = nullptr;
    void *arg = nullptr;
    std::atomic<std::uint64_t> proven = 0;
    std::atomic<std::uint64_t> refused = 0;
    std::atomic<std::uint64_t> loaded = 0;

    ttd_reader() = default;
    ttd_reader(const ttd_reader &) = delete;
    ttd_reader &operator=(const ttd_reader &) = delete;
    ~ttd_reader() {
        ttd_free_caches(&engine);
        ttd_free_slabs(&engine);
        digests.clear();
        ttd_tcrypto_uninit(&engine);
        ttd_clean_info(&engine.info);
    }
};

namespace {

// ---- Reading

int read_data(ttd_io *io, std::int64_t offset, void *buffer, std::uint64_t length) {
    const auto *reader = static_cast<const ttd_reader *>(io->handle);
    return reader->image.read(static_cast<std::uint64_t>(offset), buffer, length);
}

int read_tree(ttd_io *io, std::int64_t offset, void *buffer, std::uint64_t length) {
    auto *reader = static_cast<ttd_reader *>(io->handle);
    reader->loaded.fetch_add(length / reader->engine.info.hash_block_size, std::memory_order_relaxed);
    return reader->image.read(static_cast<std::uint64_t>(offset), buffer, length);
}

void report_mismatch(void *arg, const ttd_mismatch *mismatch) {
    auto *reader = static_cast<ttd_reader *>(arg);
    if (!reader->on_mismatch)
        return;
    const ttd_reader_mismatch report = {
        .level = mismatch->level,
        .is_data = static_cast<std::uint64_t>(mismatch->offset) < reader->engine.info.tree_offset,
        .block = mismatch->data_block,
        .offset = static_cast<std::uint64_t>(mismatch->offset),
    };
    reader->on_mismatch(reader->arg, &report);
}

// Proves `count` blocks from `first` on; their bytes are `data`.
int prove(ttd_reader &reader, tcrypto_ctx *digest, std::uint64_t first, std::uint64_t count,
          const std::uint8_t *data) {
    ttd_range range;
    range.first = static_cast<std::uint32_t>(first);
    range.end = static_cast<std::uint32_t>(first + count);
    const int err = ttd_verify_range(&reader.engine, &range, digest, data, report_mismatch, &reader);
    (err == 0 ? reader.proven : reader.refused).fetch_add(count, std::memory_order_relaxed);
    return err;
}

// One request, block by block in pieces: whole blocks in the caller's buffer, the parts
// of blocks at its ends in a buffer of one block.
class request {
public:
    request(ttd_reader &reader, tcrypto_ctx *digest, std::uint8_t *to, std::uint64_t length,
            std::uint64_t offset)
        : reader_(reader), digest_(digest), to_(to), left_(length), offset_(offset),
          block_size_(reader.engine.info.block_size) {}

    [[nodiscard]] int run() {
        while (left_ > 0)
            if (const int err = next_piece(); err != 0)
                return err;
        return 0;
    }

private:
    [[nodiscard]] int next_piece() {
        const std::uint64_t skip = offset_ % block_size_;
        if (skip != 0 || left_ < block_size_)
            return part_of_block(skip);
        return whole_blocks(std::min(left_, std::max(PIECE_SIZE, block_size_)) / block_size_);
    }

    [[nodiscard]] int whole_blocks(std::uint64_t count) {
        const std::uint64_t length = count * block_size_;
        if (const int err = fetch(to_, offset_, count); err != 0)
            return err;
        advance(length);
        return 0;
    }

    [[nodiscard]] int part_of_block(std::uint64_t skip) {
        if (!block_ && !block_.allocate(block_size_))
            return ENOMEM;
        if (const int err = fetch(block_.data(), offset_ - skip, 1); err != 0)
            return err;
        const std::uint64_t length = std::min(left_, block_size_ - skip);
        std::memcpy(to_, block_.data() + skip, length);
        advance(length);
        return 0;
    }

    // Reads blocks from an aligned offset on and proves them where they are then.
    [[nodiscard]] int fetch(std::uint8_t *to, std::uint64_t offset, std::uint64_t count) {
        if (reader_.image.read(offset, to, count * block_size_) != 0) {
            reader_.refused.fetch_add(count, std::memory_order_relaxed);
            return EIO;
        }
        return prove(reader_, digest_, offset / block_size_, count, to);
    }

    void advance(std::uint64_t length) {
        to_ += length;
        offset_ += length;
        left_ -= length;
    }

    ttd_reader &reader_;
    tcrypto_ctx *const digest_;
    std::uint8_t *to_;
    std::uint64_t left_;
    std::uint64_t offset_;
    const std::uint64_t block_size_;
    ttd_bytes block_;
};

bool lies_within(const ttd_reader &reader, std::uint64_t offset, std::uint64_t length) {
    const std::uint64_t size = reader.engine.superblock.fssize;
    return offset <= size && length <= size - offset;
}

// ---- Holes

std::uint8_t zero_piece[PIECE_SIZE];  // never written: takes no room in the file

// The next place of a kind (SEEK_HOLE, SEEK_DATA) in the image, or its end.
std::uint64_t next_place(const ttd_reader &reader, std::uint64_t from, int kind) {
    const off_t found = ::lseek(reader.image.descriptor(), static_cast<off_t>(from), kind);
    return found < 0 ? reader.image.size() : static_cast<std::uint64_t>(found);
}

// Bytes from `offset` on, at most `max_length`, that lie in a hole and in blocks of which
// each is proven to be zeros.
std::uint64_t proven_zeros(ttd_reader &reader, tcrypto_ctx *digest, std::uint64_t offset,
                           std::uint64_t max_length) {
    const std::uint64_t block_size = reader.engine.info.block_size;
    const std::uint64_t hole_end = next_place(reader, offset, SEEK_DATA);
    if (offset % block_size != 0 || hole_end <= offset)
        return 0;
    const std::uint64_t wanted = (max_length + block_size - 1) / block_size;
    const std::uint64_t blocks = std::min(wanted, (hole_end - offset) / block_size);
    const std::uint64_t piece = PIECE_SIZE / block_size;
    std::uint64_t done = 0;
    while (done < blocks) {
        const std::uint64_t count = std::min(piece, blocks - done);
        if (prove(reader, digest, offset / block_size + done, count, zero_piece) != 0)
            break;
        done += count;
    }
    return std::min(done * block_size, max_length);
}

// Bytes up to the first whole block of the next hole.
std::uint64_t possible_data(const ttd_reader &reader, std::uint64_t offset, std::uint64_t max_length) {
    const std::uint64_t block_size = reader.engine.info.block_size;
    const std::uint64_t hole = next_place(reader, offset, SEEK_HOLE);
    const std::uint64_t end = (std::max(hole, offset + 1) + block_size - 1) / block_size * block_size;
    return std::min(end - offset, max_length);
}

// ---- Opening

int refuse(int err, const char *line) {
    ttd_log(TTD_LOG_ERROR, "%s", line);
    return err;
}

int check_options(const ttd_reader_options *options) {
    if (!options || options->size < sizeof *options ||
        !options->key_path == !options->without_signature_check)
        return EINVAL;
    return 0;
}

int check_superblock(ttd_reader &reader, const ttd_reader_options &options) {
    const ttd_superblock &superblock = reader.engine.superblock;
    if (superblock.magic != TTD_MAGIC || superblock.version != TTD_VERSION)
        return refuse(EINVAL, "not a ttd image of a known version");
    if (const int err = ttd_tcrypto_init(&reader.engine); err != 0)
        return err;
    if (options.key_path)
        if (const int err = ttd_verify_superblock(&superblock, options.key_path); err != 0)
            return refuse(err, "the signature of the superblock does not prove");
    if (superblock.rollback < options.min_rollback)
        return refuse(EINVAL, "the anti-rollback version is too low");
    if (!ttd_is_block_size(superblock.blksize))  // 0 would end the process
        return refuse(EINVAL, "the block size is none");
    return ttd_superblock2info(&superblock, &reader.engine.info);
}

int prepare_caches(ttd_reader &reader, const ttd_reader_options &options) {
    std::size_t slots = 0;
    if (const int err = ttd_cache_option(&reader.engine, options.cache, &slots); err != 0)
        return refuse(err, "the cache size is none");
    if (const int err = ttd_create_slabs(&reader.engine, slots); err != 0)
        return err;
    if (const int err = ttd_create_caches(&reader.engine, slots); err != 0)
        return err;
    const borrowed_digest digest(reader.digests, reader.engine.crypto.hash_name);
    return digest.get() ? ttd_hash_zero_block(&reader.engine, digest.get()) : ENOMEM;
}

int open_opened(ttd_reader &reader, const ttd_reader_options &options) {
    reader.tree_io = {.read = read_tree, .destroy = nullptr, .handle = &reader};
    reader.data_io = {.read = read_data, .destroy = nullptr, .handle = &reader};
    reader.engine.hash_io = &reader.tree_io;
    reader.engine.data_io = &reader.data_io;
    reader.on_mismatch = options.on_mismatch;
    reader.arg = options.arg;
    if (const int err = reader.image.read_superblock(&reader.engine.superblock); err != 0)
        return err;
    if (const int err = check_superblock(reader, options); err != 0)
        return err;
    return prepare_caches(reader, options);
}

template <class OpenImage>
int open_reader(const ttd_reader_options *options, ttd_reader **out, const OpenImage &open_image) {
    if (!out)
        return -EINVAL;
    *out = nullptr;
    if (const int err = check_options(options); err != 0)
        return -err;
    std::unique_ptr<ttd_reader> reader(new (std::nothrow) ttd_reader);
    if (!reader)
        return -ENOMEM;
    reader->log = {options->on_log, options->arg};
    const log_scope scope(reader->log);
    ttd_register_log_fct(route_log);
    int err = open_image(reader->image);
    if (err == 0)
        err = open_opened(*reader, *options);
    if (err != 0)
        return -err;
    *out = reader.release();
    return 0;
}

// Fills a structure of the caller, who may know a shorter or longer one.
template <class Record>
int hand_out(Record *to, Record from) {
    if (!to || to->size < sizeof from)
        return -EINVAL;
    from.size = to->size;
    std::memcpy(to, &from, sizeof from);
    return 0;
}

int read_proven(ttd_reader &reader, std::uint8_t *to, std::size_t length, std::uint64_t offset) {
    if (!lies_within(reader, offset, length))
        return EINVAL;
    const log_scope scope(reader.log);
    const borrowed_digest digest(reader.digests, reader.engine.crypto.hash_name);
    return digest.get() ? request(reader, digest.get(), to, length, offset).run() : ENOMEM;
}

}  // namespace

int ttd_reader_open(const char *path, const ttd_reader_options *options, ttd_reader **reader) {
    if (!path)
        return -EINVAL;
    return open_reader(options, reader, [path](ttd_image_file &image) { return image.open(path, false); });
}

int ttd_reader_open_fd(int fd, const ttd_reader_options *options, ttd_reader **reader) {
    return open_reader(options, reader, [fd](ttd_image_file &image) {
        const int own = ::fcntl(fd, F_DUPFD_CLOEXEC, 3);
        return own < 0 ? errno : image.adopt(own);
    });
}

void ttd_reader_close(ttd_reader *reader) {
    delete reader;
}

int ttd_reader_get_info(const ttd_reader *reader, ttd_reader_info *info) {
    const ttd_superblock &superblock = reader->engine.superblock;
    ttd_reader_info from = {};
    from.image_size = superblock.fssize;
    from.block_size = superblock.blksize;
    from.flags = superblock.flags;
    from.rollback = superblock.rollback;
    from.format_version = superblock.version;
    from.root_hash_size = reader->engine.info.hash_size;
    std::copy_n(superblock.roothash, from.root_hash_size, from.root_hash);
    return hand_out(info, from);
}

int ttd_reader_get_statistics(const ttd_reader *reader, ttd_reader_statistics *statistics) {
    ttd_reader_statistics from = {};
    from.proven = reader->proven;
    from.refused = reader->refused;
    from.cached = ttd_lru_cache_hits(reader->engine.block_cache);
    from.loaded = reader->loaded;
    return hand_out(statistics, from);
}

int ttd_reader_read(ttd_reader *reader, void *buffer, std::size_t length, std::uint64_t offset) {
    const int err = read_proven(*reader, static_cast<std::uint8_t *>(buffer), length, offset);
    if (err != 0 && length > 0)
        std::memset(buffer, 0, length);
    return -err;
}

int ttd_reader_extent(ttd_reader *reader, std::uint64_t offset, std::uint64_t max_length,
                      std::uint64_t *length, int *zeros) {
    if (max_length == 0 || !lies_within(*reader, offset, max_length))
        return -EINVAL;
    const log_scope scope(reader->log);
    const borrowed_digest digest(reader->digests, reader->engine.crypto.hash_name);
    if (!digest.get())
        return -ENOMEM;
    *length = proven_zeros(*reader, digest.get(), offset, max_length);
    *zeros = *length > 0;
    if (*zeros == 0)
        *length = possible_data(*reader, offset, max_length);
    return 0;
}
