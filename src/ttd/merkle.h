// The hash tree of an image, built in memory level by level, laid out exactly as
// on disk.
#pragma once

#include "io/io.h"
#include "ttd/bytes.h"
#include "ttd/engine.h"

// Hashes the covered area that `image` delivers (the part past the end of the input
// reads as zeros in partition mode) into `tree`, tree_size bytes, and sets root and
// empty hash in ctx.info.  The geometry, salt and crypto selections are in place.
// Every failure is logged; ENOMEM, EINVAL, ENXIO or a read error.
[[nodiscard]] int ttd_build_tree(ttd_ctx &ctx, mktfs_io &image, ttd_bytes &tree);
