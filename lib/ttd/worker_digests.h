// A digest context for each worker of a pool.
#pragma once

#include <memory>

#include "ttd/engine.h"

class ttd_worker_digests {
public:
    ttd_worker_digests() = default;
    ttd_worker_digests(const ttd_worker_digests &) = delete;
    ttd_worker_digests &operator=(const ttd_worker_digests &) = delete;
    ~ttd_worker_digests();

    // Worker 0 uses `own`, borrowed.  False when not all of `count` contexts can be made.
    [[nodiscard]] bool allocate(const ttd_crypto &crypto, tcrypto_ctx *own, unsigned count);

    [[nodiscard]] tcrypto_ctx *of(unsigned worker) const { return worker == 0 ? own_ : others_[worker - 1]; }

private:
    tcrypto_ctx *own_ = nullptr;
    std::unique_ptr<tcrypto_ctx *[]> others_;
    unsigned other_count_ = 0;
};
