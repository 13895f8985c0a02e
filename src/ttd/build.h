// Building a ttd image: hash tree over the inner image, signed superblock, and
// the three written in order.
#pragma once

struct mktfs_io;
struct ttd_run_context;

// Builds what the options of the run ask for.  With -C that is only to derive and print
// the geometry, which touches no file; `output` may then be null.  Every failure is logged;
// EINVAL for options, consistency and an input that changes meanwhile, ENOMEM, EFAULT
// for the random generator, or the error of the files or crypto service.  The output
// may then hold part of an image.
[[nodiscard]] int ttd_build(ttd_run_context &run, mktfs_io *output);
