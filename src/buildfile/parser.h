// The build-file parser: reads the file statement by statement and builds the
// filesystem record from it.
#pragma once

#include "buildfile/scanner.h"
#include "fs/backend_record.h"

// Parses a build file.  A value that is refused is a parse error, which ends the run under
// the default log function; if that returns, parsing continues.  The first syntax error
// ends the parse with a fatal message.  Returns whether the file could be closed (0), not
// whether it was accepted.  Objects of complete statements stay in the tree, the unfinished
// one is freed.
int base_parse_cfg_file(const char *path);

// The parser proper: 0 accepted, 1 syntax error, 2 out of stack.
int base_parse();
// Logs a message of the parser with its position at error level.
void base_error(const char *message);

// The operations of a type that takes build files.
inline constexpr mktfs_parser mktfs_base_parser = {
    .parse_cfg_file = base_parse_cfg_file,
    .scanner_context = base_scanner_context,
};
