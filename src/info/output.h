// Standard output, collected in memory so that it is written in one piece and a write error
// is known; and the width of its terminal.
#pragma once

#include <cstddef>
#include <cstdio>

// Writes to standard output; reports a failure and returns its error number.
[[nodiscard]] int ttdinfo_write(const char *text, std::size_t length);

// Columns of the terminal, at most 100; 0 when standard output is not a terminal, or has
// fewer than 40 columns.
[[nodiscard]] unsigned ttdinfo_columns();

class ttdinfo_output {
public:
    ttdinfo_output();
    ttdinfo_output(const ttdinfo_output &) = delete;
    ttdinfo_output &operator=(const ttdinfo_output &) = delete;
    ~ttdinfo_output();

    [[nodiscard]] std::FILE *file() { return file_; }  // null when memory is out
    // Ends the collection and writes it.  Called once.  ENOMEM, or the error of
    // ttdinfo_write.
    [[nodiscard]] int write();

private:
    char *text_ = nullptr;
    std::size_t length_ = 0;
    std::FILE *file_;
};
