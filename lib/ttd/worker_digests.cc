#include "ttd/worker_digests.h"

#include <new>

ttd_worker_digests::~ttd_worker_digests() {
    while (other_count_ > 0)
        tcrypto_release_ctx(others_[--other_count_]);
}

bool ttd_worker_digests::allocate(const ttd_crypto &crypto, tcrypto_ctx *own, unsigned count) {
    own_ = own;
    if (count < 2)
        return true;
    others_.reset(new (std::nothrow) tcrypto_ctx *[count - 1]);
    while (others_ && other_count_ < count - 1) {
        if (tcrypto_digest_request(crypto.hash_name, crypto.plugin, 0, &others_[other_count_]) != TCRYPTO_OK)
            return false;
        ++other_count_;
    }
    return others_ != nullptr;
}
