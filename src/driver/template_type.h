// A skeleton to start a new filesystem type from: every hook logs its name.  It is
// in no table, so nothing can select it.
#pragma once

struct mktfs_backend;

[[nodiscard]] const mktfs_backend *template_backend();
