// The backend record: the constant operation table of a filesystem type.  Plain
// data; the dispatchers that call it are in fs/filesystem.h.
#pragma once

#include <cstdint>

struct mktfs_filesystem;
struct mktfs_filesystem_opts;
struct mktfs_inode;
struct mktfs_io;

inline constexpr std::uint32_t MKTFS_BACKEND_SORTED = 0x1;  // children are kept in name order
inline constexpr std::uint32_t MKTFS_BACKEND_EXTRACT = 0x2;
inline constexpr std::uint32_t MKTFS_BACKEND_VERIFY = 0x4;
inline constexpr std::uint32_t MKTFS_BACKEND_HARDLINKS = 0x8;
inline constexpr std::uint32_t MKTFS_BACKEND_ACLS = 0x10;

// How a type reads its input file.
struct mktfs_parser {
    int (*parse_cfg_file)(const char *path) = nullptr;
    // The current input position for messages: borrowed file name (may be null),
    // line, column.
    void (*scanner_context)(const char **file, int *line, int *column) = nullptr;
};

// Slots return 0 or an errno value.  An empty init slot counts as success, an
// empty finit slot is skipped, an empty operation answers EOPNOTSUPP.
struct mktfs_backend {
    const char *name = nullptr;  // upper-case display name
    std::uint32_t flags = 0;     // MKTFS_BACKEND_*
    void (*usage)() = nullptr;   // prints the type's option help
    // Sets the option flags and the private options before any option is read.
    int (*opts_init)(mktfs_filesystem_opts *opts) = nullptr;
    const char *optstring = nullptr;  // getopt letters, appended to the driver's
    // 0 accepted, EOPNOTSUPP unknown letter, other: failure, already reported.
    int (*cmdopt_handler)(mktfs_filesystem_opts *opts, int letter, const char *argument) = nullptr;
    void (*print_stats)(mktfs_filesystem *fs) = nullptr;  // -s, after the generic block
    mktfs_parser parser{};
    // Build-file option and inode attributes: 0, EINVAL bad value (null when
    // missing), EOPNOTSUPP unknown name.
    int (*option_handler)(mktfs_filesystem *fs, const char *name, const char *value) = nullptr;
    int (*inode_attr)(mktfs_inode *inode, const char *name, const char *value) = nullptr;
    // The record has its defaults; nothing is parsed yet.
    int (*build_init)(mktfs_filesystem *fs) = nullptr;
    // After every build, also one that failed.
    void (*build_finit)(mktfs_filesystem *fs) = nullptr;
    // Writes the image of the resolved tree.  `output`, borrowed, may be null.
    int (*build)(mktfs_filesystem *fs, mktfs_io *output) = nullptr;
    // The finit slots of extraction and verification run after success only.
    int (*extract_init)(mktfs_filesystem *fs) = nullptr;
    void (*extract_finit)(mktfs_filesystem *fs) = nullptr;
    // Checks the image, which is borrowed until the end of the extraction.
    int (*mount)(mktfs_filesystem *fs, mktfs_io *image) = nullptr;
    // Fills the embedded root: a directory with number 1.
    int (*readroot)(mktfs_filesystem *fs, mktfs_io *image, mktfs_inode *root) = nullptr;
    // Adds the directory's entries with mktfs_inode_create; none has number 1.
    int (*readdir)(mktfs_filesystem *fs, mktfs_io *image, mktfs_inode *directory) = nullptr;
    // Writes the link target, without a terminator, into the memory object.
    int (*readlnk)(mktfs_filesystem *fs, mktfs_io *image, mktfs_inode *link, mktfs_io *target) = nullptr;
    // Writes the contents into the file object.
    int (*readfile)(mktfs_filesystem *fs, mktfs_io *image, mktfs_inode *file, mktfs_io *output) = nullptr;
    int (*verify_init)(mktfs_filesystem *fs) = nullptr;
    void (*verify_finit)(mktfs_filesystem *fs) = nullptr;
    int (*verify)(mktfs_filesystem *fs, mktfs_io *image) = nullptr;
    // Null-terminated list, borrowed, of the files besides the operand that the run
    // reads (its elements and the list last until the options change).  The driver
    // refuses an output that would destroy one of them.  Empty: none.
    const char *const *(*inputs)(const mktfs_filesystem_opts *opts) = nullptr;
};
