// The inner image as the builder reads it: each byte is fetched once, into the
// caller's memory, so that what is hashed is what is written.  Where nothing is written
// the bytes may be used in a mapping, without a copy.
//
// Threads: all but open() and map() may be called from several threads.
#pragma once

#include <sys/stat.h>

#include <cstdint>

#include "th/file.h"

class ttd_input_image {
public:
    ttd_input_image() = default;
    ttd_input_image(const ttd_input_image &) = delete;
    ttd_input_image &operator=(const ttd_input_image &) = delete;
    ~ttd_input_image();

    // Called once.  The error number of th_file::open; logs.
    [[nodiscard]] int open(const char *path);

    [[nodiscard]] std::uint64_t size() const { return file_.size(); }  // bytes
    // The file takes up less room than it has bytes: it has holes.
    [[nodiscard]] bool is_sparse() const { return sparse_; }

    // The first byte at or behind `offset` that lies outside a hole, or inside one; the
    // size when there is none.
    [[nodiscard]] std::uint64_t next_data(std::uint64_t offset) const;
    [[nodiscard]] std::uint64_t next_hole(std::uint64_t offset) const;

    // Reads `length` bytes.  `done`: bytes that were read, also on failure.  EIO when
    // the file ends before, else the system's error number.  Does not log.
    [[nodiscard]] int read(std::uint64_t offset, std::uint8_t *buffer, std::uint64_t length,
                           std::uint64_t &done) const;

    // Lets in_place() work, if the file can be mapped.  Called at most once.
    void map();
    // The bytes in the mapping, or null where they have to be read (not all of them are
    // there, or reading fails).  A file that is cut short while they are used ends the
    // process with SIGBUS.
    [[nodiscard]] const std::uint8_t *in_place(std::uint64_t offset, std::uint64_t length) const;
    // Releases what in_place() gave from `offset` on.  Called in ascending order for each
    // stretch of 2 MiB.
    void let_go(std::uint64_t offset, std::uint64_t length) const;

    // The file has another size or modification time than when it was opened.
    [[nodiscard]] bool has_changed() const;

private:
    [[nodiscard]] std::uint64_t seek(std::uint64_t offset, int whence) const;

    th_file file_;
    struct stat opened_ {};
    bool sparse_ = false;
    std::uint8_t *mapping_ = nullptr;
};
