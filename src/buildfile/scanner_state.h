// What the generated scanner calls: input, position, token texts and reports.
#pragma once

#include <cstddef>
#include <cstdio>

#include "buildfile/scanner.h"

// Of the generated scanner: what it reads, and the release of its buffers, which
// also makes it forget its stream.
extern std::FILE *base_in;
int base_lex_destroy();

[[nodiscard]] bool base_scanner_is_open();

[[nodiscard]] int base_statement();
// True after the header of an object, whose target path follows.
[[nodiscard]] bool base_target_expected();

// ---- Position

void base_token(std::size_t length);  // a token of `length` bytes was read
void base_newline();                  // it ends a line
void base_count_lines(const char *text, std::size_t length);

// ---- Tokens

// Enters a header; returns `token`.
int base_keyword(base_element_kind kind, int token);
// A copy of the text, as a C string, for base_lval.
[[nodiscard]] char *base_copy(const char *text, std::size_t length);

// Quoted strings: each run of text replaces the one before; the closing quote
// yields the last one, or null with a report when there was none.
void base_quoted_begin();
void base_quoted_text(const char *text, std::size_t length);
[[nodiscard]] char *base_quoted_end();

// Braced contents: runs of text add up; the closing brace yields all.
void base_contents_begin();
void base_contents_text(const char *text, std::size_t length);
[[nodiscard]] char *base_contents_end();

// ---- Reports

void base_invalid_character(char character);
void base_unterminated();

// The end of input, between tokens or inside a quoted string or contents.  Return
// the end-of-input token.
int base_end_of_input();
int base_unterminated_input();
