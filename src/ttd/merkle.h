// The hash tree of an image, built in memory level by level, laid out exactly as
// on disk.
#pragma once

#include "ttd/bytes.h"
#include "ttd/engine.h"
#include "ttd/level_hasher.h"

// Hashes the covered area (the input, and zeros behind it in partition mode) into
// `tree`, tree_size bytes, and sets root and empty hash in ctx.info.  The geometry,
// salt and crypto selections are in place.  An error of the copy stays in it.
// Every failure is logged; ENOMEM, EINVAL, ENXIO or a read error.
[[nodiscard]] int ttd_build_tree(ttd_ctx &ctx, const ttd_build_means &means, ttd_bytes &tree);
