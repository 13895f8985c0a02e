// One line on standard error about a run that takes longer than a second: percent, speed
// and time left.  Only where it can be seen: standard error is a terminal that can clear a
// line, and -v did not ask for messages instead.  The line is wiped at the end, and before
// any message.
//
// One run at a time, from one thread.
#pragma once

#include <cstddef>
#include <cstdint>

// A run that goes over `size` bytes `passes` times (build: hash, then write), for as
// long as the object lives.
class mktfs_progress {
public:
    mktfs_progress(std::uint64_t size, unsigned passes);
    ~mktfs_progress();
    mktfs_progress(const mktfs_progress &) = delete;
    mktfs_progress &operator=(const mktfs_progress &) = delete;
};

// Counts further bytes as done.  Does nothing outside a watched run.
void mktfs_progress_add(std::uint64_t bytes);

// Takes the line off the screen until the next step.  Async-signal-safe.
void mktfs_progress_wipe();

// The figures of a line.
struct mktfs_progress_figures {
    std::uint64_t size = 0;  // bytes of the image, 1 or more
    unsigned passes = 1;
    std::uint64_t done = 0;  // bytes of all passes
    double seconds = 0;      // since the start, above 0
};

// The text of the line, cut to capacity - 1 characters: " 42%  512 MiB/s  0:07 left".
// The speed is that of the image, not of its passes.
void mktfs_progress_text(const mktfs_progress_figures &figures, char *out, std::size_t capacity);
