#include "info/keys.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>

#include "base/host.h"

namespace {

// Larger than any PEM file of a public key.
constexpr std::size_t MAX_KEY_FILE = 64 * 1024;

int refuse(const char *path, int err, const char *reason) {
    std::fprintf(stderr, "ttdinfo: %s: %s\n", path, reason);
    return err;
}

bool is_key_of(const ttd_signature_row &row, std::span<const std::uint8_t> pem, ttd_key &out) {
    out = {};
    if (tcrypto_keygen_request(row.key, nullptr, 0, th_out(out.keygen)) != TCRYPTO_OK)
        return false;
    return tcrypto_pubkey_from_mem(out.keygen.get(), th_out(out.key), pem.data(), pem.size(),
                                   TCRYPTO_FORMAT_PEM) == TCRYPTO_OK;
}

// The signature code whose kind of key the bytes are, or 0.
std::uint32_t load_key(std::span<const std::uint8_t> pem, ttd_key &out) {
    for (std::uint32_t code = 1; const ttd_signature_row *row = ttd_sig_row(code); ++code)
        if (is_key_of(*row, pem, out))
            return code;
    return 0;
}

}  // namespace

int ttdinfo_keys::load(std::span<const char *const> paths) {
    const std::unique_ptr<std::uint8_t[]> room(new (std::nothrow) std::uint8_t[MAX_KEY_FILE]);
    entries_.reset(new (std::nothrow) entry[paths.size()]);
    if (!room || !entries_)
        return ENOMEM;
    for (const char *path : paths) {
        entry &to = entries_[count_];
        std::size_t length = 0;
        if (const int err = mktfs_read_file(path, {room.get(), MAX_KEY_FILE}, &length); err != 0)
            return refuse(path, err, std::strerror(err));
        to.path = path;
        to.sigtype = load_key({room.get(), length}, to.key);
        if (to.sigtype == 0)
            return refuse(path, EINVAL, "no PEM public key of a known signature type");
        ++count_;
    }
    return 0;
}

const char *ttdinfo_keys::proving(const ttd_superblock &superblock) const {
    for (const entry &of : std::span(entries_.get(), count_))
        if (of.sigtype == superblock.sigtype && ttd_verify_with_key(&superblock, of.key) == 0)
            return of.path;
    return nullptr;
}
