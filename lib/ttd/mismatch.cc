#include "ttd/mismatch.h"

#include <cerrno>

#include "ttd/engine_log.h"

void ttd_print_hash_pair(const ttd_ctx &ctx, const ttd_hash_pair &hashes) {
    ttd_print_hex_data("disk hash", hashes.expected, ctx.info.hash_size);
    ttd_print_hex_data("calc hash", hashes.computed, ctx.info.hash_size);
}

int ttd_report_mismatch(const ttd_ctx &ctx, const ttd_hash_pair &hashes, const ttd_mismatch &mismatch,
                        const ttd_listener &listener) {
    if (!ttd_is_tracing(ctx))
        ttd_print_hash_pair(ctx, hashes);
    ttd_log(TTD_LOG_ERROR, "Hash mismatch for data block %u (hash block %u) at level %u (offset: %ld)\n",
            mismatch.data_block, mismatch.hash_block, mismatch.level, mismatch.offset);
    if (listener.callback)
        listener.callback(listener.arg, &mismatch);
    return EIO;
}
