// The command line: selects the filesystem type, reads the options and runs one
// of the three modes.
#pragma once

// The whole program.  Returns the exit status: 0, 1 for usage errors, otherwise
// the error number of the step that failed.  Fatal messages end the process
// inside the log function.
[[nodiscard]] int mktfs_main(int argc, char **argv);
