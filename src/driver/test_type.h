// The hidden type "test": reads a build file and prints the resolved tree, which
// shows the whole way of a build file without any image format.  Writes nothing
// to the output.
#pragma once

struct mktfs_backend;

[[nodiscard]] const mktfs_backend *test_backend();
