// The hash tree of an image, built in memory level by level, laid out exactly as
// on disk.
#pragma once

#include "talg/workers.h"
#include "ttd/bytes.h"
#include "ttd/engine.h"
#include "ttd/image_copy.h"
#include "ttd/input_image.h"

// What the hashing works with.
struct ttd_build_means {
    const ttd_input_image &input;
    ttd_image_copy *copy = nullptr;  // gets the input's bytes; null: none
    talg_workers *workers = nullptr;
    unsigned worker_count = 1;
};

// Hashes the covered area (the input, and zeros behind it in partition mode) into
// `tree`, tree_size bytes, and sets root and empty hash in ctx.info.  The geometry,
// salt and crypto selections are in place.  An error of the copy stays in it.
// Every failure is logged; ENOMEM, EINVAL, ENXIO or a read error.
[[nodiscard]] int ttd_build_tree(ttd_ctx &ctx, const ttd_build_means &means, ttd_bytes &tree);
