// The build-file scanner: turns the text into the grammar's tokens and knows the
// position of the last one for messages.  Process-wide, one file at a time.  The
// time to scan is linear in the size of the file, however long a token is.
//
// Malformed input is reported through mktfs_parse_error; scanning goes on if the
// log function returns.  An unreadable stream and lack of memory end the process
// with status 2 and a line on standard error.  Characters that have no meaning
// between tokens are copied to standard output.
#pragma once

// What the scanner reads next; it keeps this itself.
enum base_statement_state : int {
    BASE_STATE_LINE = 0,       // at the start of a statement
    BASE_STATE_ATTRIBUTE = 1,  // inside the header
    BASE_STATE_VALUE = 2,      // after an attribute's "="
    BASE_STATE_TARGET = 3,     // after the header's "]"
};
// The keyword of the current header.
enum base_element_kind : int {
    BASE_ELEMENT_OPTION = 0,  // has no target
    BASE_ELEMENT_FILE = 1,
    BASE_ELEMENT_DIR = 2,
    BASE_ELEMENT_LINK = 3,
    BASE_ELEMENT_HLINK = 4,
};

// Opens a build file; line 1.  The column counts on from a file before.  Logs a
// fatal message on failure; if that returns, the input is empty.
void base_scanner_open(const char *path);
// Closes the file and forgets it; the position stays.  0, or EOF when closing
// failed.
int base_scanner_close();

// The next token kind of the grammar, 0 at the end of input.  Token texts are
// left in base_lval, allocated with malloc and owned by the caller; null for an
// empty quoted string.
int base_lex();
int base_wrap();  // 1: there is no further file

// Where the last token began: file (borrowed until the next open, null before the
// first), line from 1, column from 0 on the first line and from 1 on later ones.
// The last token of a braced body is the whole body.
void base_scanner_context(const char **file, int *line, int *column);

// Set what the scanner reads next (base_statement_state) and the keyword of the current
// header (base_element_kind).
void base_scanner_setstate(int state);
void base_scanner_setelem(int kind);
