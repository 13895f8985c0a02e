#include "tcrypto/key.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <type_traits>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tcrypto/context.h"
#include "tcrypto/log.h"

namespace {

constexpr std::size_t MAX_KEY_FILE_SIZE = std::size_t{1} << 20;  // bytes

// The guard for one operation of the key generator part.
template <auto Operation>
int check(const tcrypto_ctx *ctx) {
    return tcrypto_check_algorithm(ctx, TCRYPTO_KEYGEN, ctx && ctx->algorithm->keygen.*Operation,
                                   TCRYPTO_STATE_ANY);
}

// ---- Key material in files

// Memory that is wiped before it is freed.
class secret_buffer {
public:
    // `size` is not 0.
    explicit secret_buffer(std::size_t size) : bytes_(new (std::nothrow) std::uint8_t[size]), size_(size) {}
    secret_buffer(const secret_buffer &) = delete;
    secret_buffer &operator=(const secret_buffer &) = delete;
    ~secret_buffer() {
        if (bytes_)
            explicit_bzero(bytes_.get(), size_);
    }
    [[nodiscard]] bool allocated() const { return bytes_ != nullptr; }
    [[nodiscard]] std::span<std::uint8_t> bytes() const { return {bytes_.get(), size_}; }

private:
    std::unique_ptr<std::uint8_t[]> bytes_;
    std::size_t size_;
};

class descriptor {
public:
    explicit descriptor(int number) : number_(number) {}
    descriptor(const descriptor &) = delete;
    descriptor &operator=(const descriptor &) = delete;
    ~descriptor() {
        if (number_ >= 0)
            close(number_);
    }
    [[nodiscard]] bool is_open() const { return number_ >= 0; }
    [[nodiscard]] int number() const { return number_; }
    // Closes at once; false and errno when the system reports a late write error.
    [[nodiscard]] bool finish() { return close(std::exchange(number_, -1)) == 0; }

private:
    int number_;
};

template <class Call>
auto retry_interrupted(Call call) {
    auto result = call();
    while (result == -1 && errno == EINTR)
        result = call();
    return result;
}

// Moves bytes with `transfer`, read or write, until all are moved or the file ends.
// Returns their number, or nothing, with errno set, when it fails.
template <class Transfer>
std::optional<std::size_t> transfer_all(Transfer transfer, int file, std::span<std::uint8_t> bytes) {
    std::size_t total = 0;
    while (total < bytes.size()) {
        const auto rest = bytes.subspan(total);
        const ssize_t done = retry_interrupted([&] { return transfer(file, rest.data(), rest.size()); });
        if (done < 0)
            return std::nullopt;
        if (done == 0)
            break;
        total += static_cast<std::size_t>(done);
    }
    return total;
}

int fail_open(const char *path) {
    TH_LOG(tcrypto_log, TH_LOG_ERROR, "unable to open key file '%s' (%s)\n", path, std::strerror(errno));
    return TCRYPTO_E_FILE;
}

int fail_read(const char *path, int error) {
    TH_LOG(tcrypto_log, TH_LOG_ERROR, "unable to read key from file '%s' (%s)\n", path, std::strerror(error));
    return TCRYPTO_E_IO;
}

int fail_write(const char *path) {
    TH_LOG(tcrypto_log, TH_LOG_ERROR, "unable to write key to file '%s' (%s)\n", path, std::strerror(errno));
    return TCRYPTO_E_IO;
}

int fail_empty() {
    TH_LOG(tcrypto_log, TH_LOG_ERROR, "key file empty\n");
    return TCRYPTO_E_IO;
}

// Checks what kind of file a key is to come from.  `size` is that of a regular file; of any
// other one, the most that is read: one byte more than a key may have.
int query_key_file(int file, const char *path, bool &regular, std::size_t &size) {
    struct stat info {};
    if (fstat(file, &info) != 0) {
        TH_LOG(tcrypto_log, TH_LOG_ERROR, "unable to read key file size '%s' (%s)\n", path,
               std::strerror(errno));
        return TCRYPTO_E_FILE;
    }
    if (S_ISDIR(info.st_mode))
        return fail_read(path, EISDIR);
    regular = S_ISREG(info.st_mode);
    size = regular ? static_cast<std::size_t>(info.st_size) : MAX_KEY_FILE_SIZE + 1;
    if (!regular || (size != 0 && size <= MAX_KEY_FILE_SIZE))
        return TCRYPTO_OK;
    return size == 0 ? fail_empty() : fail_read(path, EFBIG);
}

// Fills `bytes` from a regular file; from another one, reads until its end.  `length`:
// bytes read.
int read_key_file(int file, const char *path, bool regular, std::span<std::uint8_t> bytes,
                  std::size_t &length) {
    if (!regular)
        fcntl(file, F_SETFL, 0);  // from here on wait for whoever writes to the pipe
    const std::optional<std::size_t> done = transfer_all(read, file, bytes);
    if (!done)
        return fail_read(path, errno);
    length = *done;
    if (regular)
        return length == bytes.size() ? int{TCRYPTO_OK} : fail_read(path, EIO);
    if (length == 0)
        return fail_empty();
    return length > MAX_KEY_FILE_SIZE ? fail_read(path, EFBIG) : int{TCRYPTO_OK};
}

int write_key_file(const char *path, std::span<std::uint8_t> bytes) {
    descriptor file(retry_interrupted(
        [&] { return open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY, S_IRUSR | S_IWUSR); }));
    if (!file.is_open())
        return fail_open(path);
    struct stat info {};
    if (fstat(file.number(), &info) != 0)
        return fail_write(path);
    if (S_ISREG(info.st_mode) && fchmod(file.number(), S_IRUSR | S_IWUSR) != 0)
        return fail_write(path);
    return transfer_all(write, file.number(), bytes) == bytes.size() && file.finish() ? TCRYPTO_OK
                                                                                      : fail_write(path);
}

// ---- Key objects

// Hands a key that `make` fills with 0 to `out`.
template <class Make>
int make_key(const tcrypto_ctx &keygen, tcrypto_key **out, Make make) {
    tcrypto_key_ptr key(new (std::nothrow) tcrypto_key{.keygen = keygen.algorithm, .record = {}});
    if (!key)
        return TCRYPTO_E_MEMORY;
    if (const int err = make(&key->record); err != TCRYPTO_OK)
        return err;
    *out = key.release();
    return TCRYPTO_OK;
}

bool is_type(const tcrypto_key *key, std::uint32_t type) {
    return key && key->record.type == type;
}

int export_key(const tcrypto_key *key, std::uint32_t type, std::uint32_t format, void *out,
               std::size_t *length) {
    if (!key)
        return TCRYPTO_E_KEY;
    if (!length)
        return TCRYPTO_E_PARAMETERS;
    if (key->record.type != type)
        return TCRYPTO_E_KEY_TYPE;
    if (!key->keygen || !key->keygen->keygen.export_)
        return TCRYPTO_E_NO_FUNCTION;
    return key->keygen->keygen.export_(&key->record, format, out, length);
}

int export_key_to_file(const tcrypto_key *key, const char *path, std::uint32_t type, std::uint32_t format) {
    if (!path)
        return TCRYPTO_E_PARAMETERS;
    std::size_t length = 0;
    if (const int err = export_key(key, type, format, nullptr, &length); err != TCRYPTO_OK)
        return err;
    const secret_buffer buffer(length);
    if (!buffer.allocated())
        return TCRYPTO_E_MEMORY;
    if (const int err = export_key(key, type, format, buffer.bytes().data(), &length); err != TCRYPTO_OK)
        return err;
    return write_key_file(path, buffer.bytes().first(length));
}

}  // namespace

int tcrypto_keygen_request(const char *name, const char *plugin, std::uint32_t flags, tcrypto_ctx **out) {
    return tcrypto_request_algorithm(TCRYPTO_KEYGEN, name, plugin, flags, out);
}

int tcrypto_keygen_supported(const char *name, const char *plugin, std::uint32_t flags) {
    return tcrypto_request_algorithm(TCRYPTO_KEYGEN, name, plugin, flags, nullptr);
}

// ---- Loading

int tcrypto_load_key_from_file(tcrypto_ctx *keygen, tcrypto_key **out, const char *path, std::uint32_t type,
                               std::uint32_t format) {
    if (!out || !path)
        return TCRYPTO_E_PARAMETERS;
    *out = nullptr;
    // Without O_NONBLOCK the open of a named pipe would wait for a writer.
    const descriptor file(
        retry_interrupted([&] { return open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK); }));
    if (!file.is_open())
        return fail_open(path);
    bool regular = false;
    std::size_t size = 0;
    if (const int err = query_key_file(file.number(), path, regular, size); err != TCRYPTO_OK)
        return err;
    const secret_buffer buffer(size);
    if (!buffer.allocated())
        return TCRYPTO_E_MEMORY;
    if (const int err = read_key_file(file.number(), path, regular, buffer.bytes(), size); err != TCRYPTO_OK)
        return err;
    return tcrypto_load_key_from_mem(keygen, out, buffer.bytes().data(), size, type, format);
}

int tcrypto_key_from_file(tcrypto_ctx *keygen, tcrypto_key **out, const char *path) {
    return tcrypto_load_key_from_file(keygen, out, path, TCRYPTO_KEY_SYMMETRIC, TCRYPTO_FORMAT_RAW);
}

int tcrypto_pubkey_from_file(tcrypto_ctx *keygen, tcrypto_key **out, const char *path, std::uint32_t format) {
    return tcrypto_load_key_from_file(keygen, out, path, TCRYPTO_KEY_PUBLIC, format);
}

int tcrypto_privkey_from_file(tcrypto_ctx *keygen, tcrypto_key **out, const char *path,
                              std::uint32_t format) {
    return tcrypto_load_key_from_file(keygen, out, path, TCRYPTO_KEY_PRIVATE, format);
}

int tcrypto_load_key_from_mem(tcrypto_ctx *keygen, tcrypto_key **out, const void *bytes, std::size_t length,
                              std::uint32_t type, std::uint32_t format) {
    if (!out)
        return TCRYPTO_E_PARAMETERS;
    *out = nullptr;
    if (length == 0)
        return TCRYPTO_E_KEY;
    if (!bytes)
        return TCRYPTO_E_PARAMETERS;
    if (const int err = check<&tcrypto_keygen_ops::import>(keygen); err != TCRYPTO_OK)
        return err;
    const tcrypto_algorithm *algorithm = keygen->algorithm;
    return make_key(*keygen, out, [&](tcrypto_key_record *record) {
        return algorithm->keygen.import(algorithm, bytes, length, type, format, record);
    });
}

int tcrypto_key_from_mem(tcrypto_ctx *keygen, tcrypto_key **out, const void *bytes, std::size_t length) {
    return tcrypto_load_key_from_mem(keygen, out, bytes, length, TCRYPTO_KEY_SYMMETRIC, TCRYPTO_FORMAT_RAW);
}

int tcrypto_pubkey_from_mem(tcrypto_ctx *keygen, tcrypto_key **out, const void *bytes, std::size_t length,
                            std::uint32_t format) {
    return tcrypto_load_key_from_mem(keygen, out, bytes, length, TCRYPTO_KEY_PUBLIC, format);
}

int tcrypto_privkey_from_mem(tcrypto_ctx *keygen, tcrypto_key **out, const void *bytes, std::size_t length,
                             std::uint32_t format) {
    return tcrypto_load_key_from_mem(keygen, out, bytes, length, TCRYPTO_KEY_PRIVATE, format);
}

// ---- Deriving and generating

int tcrypto_pubkey_from_privkey(tcrypto_ctx *keygen, const tcrypto_key *private_key, tcrypto_key **out) {
    if (!out)
        return TCRYPTO_E_PARAMETERS;
    *out = nullptr;
    if (const int err = check<&tcrypto_keygen_ops::public_from_private>(keygen); err != TCRYPTO_OK)
        return err;
    if (!private_key)
        return TCRYPTO_E_KEY;
    const tcrypto_algorithm *algorithm = keygen->algorithm;
    return make_key(*keygen, out, [&](tcrypto_key_record *record) {
        return algorithm->keygen.public_from_private(algorithm, &private_key->record, record);
    });
}

int tcrypto_generate_key(tcrypto_ctx *keygen, std::size_t bits, tcrypto_key **out) {
    if (!out)
        return TCRYPTO_E_PARAMETERS;
    *out = nullptr;
    if (const int err = check<&tcrypto_keygen_ops::generate_symmetric>(keygen); err != TCRYPTO_OK)
        return err;
    return make_key(*keygen, out, [&](tcrypto_key_record *record) {
        return keygen->algorithm->keygen.generate_symmetric(keygen->private_state, bits, record);
    });
}

// ---- Exports

int tcrypto_key_to_mem(const tcrypto_key *key, void *out, std::size_t *length) {
    return export_key(key, TCRYPTO_KEY_SYMMETRIC, TCRYPTO_FORMAT_RAW, out, length);
}

int tcrypto_pubkey_to_mem(const tcrypto_key *key, void *out, std::size_t *length, std::uint32_t format) {
    return export_key(key, TCRYPTO_KEY_PUBLIC, format, out, length);
}

int tcrypto_privkey_to_mem(const tcrypto_key *key, void *out, std::size_t *length, std::uint32_t format) {
    return export_key(key, TCRYPTO_KEY_PRIVATE, format, out, length);
}

int tcrypto_key_to_file(const tcrypto_key *key, const char *path) {
    return export_key_to_file(key, path, TCRYPTO_KEY_SYMMETRIC, TCRYPTO_FORMAT_RAW);
}

int tcrypto_pubkey_to_file(const tcrypto_key *key, const char *path, std::uint32_t format) {
    return export_key_to_file(key, path, TCRYPTO_KEY_PUBLIC, format);
}

int tcrypto_privkey_to_file(const tcrypto_key *key, const char *path, std::uint32_t format) {
    return export_key_to_file(key, path, TCRYPTO_KEY_PRIVATE, format);
}

// ---- Tests and release

bool tcrypto_key_is_symmetric(const tcrypto_key *key) {
    return is_type(key, TCRYPTO_KEY_SYMMETRIC);
}

bool tcrypto_key_is_public(const tcrypto_key *key) {
    return is_type(key, TCRYPTO_KEY_PUBLIC);
}

bool tcrypto_key_is_private(const tcrypto_key *key) {
    return is_type(key, TCRYPTO_KEY_PRIVATE);
}

void tcrypto_release_key(tcrypto_key *key) {
    static_assert(std::is_trivially_destructible_v<tcrypto_key>);  // wiped whole
    if (!key)
        return;
    if (!key->keygen)
        TH_LOG(tcrypto_log, TH_LOG_ERROR, "attempting to free a key not associated with a valid algorithm\n");
    else if (key->keygen->keygen.release)
        key->keygen->keygen.release(&key->record);
    explicit_bzero(key, sizeof *key);
    delete key;
}
