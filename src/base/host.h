// Helpers around host files and text that several modules share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

struct stat;
struct FTW;

// The file's size in bytes from its status; that of a block device that is named by its
// path, from its end.  ESPIPE for a pipe or socket, else the system's error number;
// `size` is 0 on failure.  Do not log.
[[nodiscard]] int mktfs_file_size(const char *path, std::uint64_t *size);
[[nodiscard]] int mktfs_fd_size(int descriptor, std::uint64_t *size);

// Whether both statuses are of the same file or folder.
[[nodiscard]] bool mktfs_same_object(const struct stat &a, const struct stat &b);
// Whether the status is of a regular file that takes less room than it has bytes: it has
// holes.
[[nodiscard]] bool mktfs_is_sparse(const struct stat &status);

// Writes `source` with every occurrence of `needle` replaced into `out`, scanning
// left to right without looking into inserted text.  `capacity` counts the
// terminator.  EINVAL for a null argument, an empty needle, or a result that does
// not fit (`out` is then untouched).
[[nodiscard]] int mktfs_strreplace(const char *source, const char *needle, const char *replacement, char *out,
                                   std::size_t capacity);

// Reads a file, which may be a pipe, until its end or until the room is full.  `length`:
// bytes that were read.  The system's error number; does not log.
[[nodiscard]] int mktfs_read_file(const char *path, std::span<std::uint8_t> room, std::size_t *length);

// Removes a folder tree, entries before their folder; follows no symbolic link
// and stays on its file system.  Null is ignored.  The first entry that cannot be
// removed is logged and ends the walk.
void mktfs_rmtree(const char *folder);

// The step of that walk: removes one entry.  0, or nonzero after logging.
int mktfs_unlink_cb(const char *path, const struct stat *status, int kind, struct FTW *walk);

// The directory for temporary files: the first of TMPDIR, TEMP, TMP that is set
// (even if empty), else "/tmp".  Decided at the first call, for the life of the
// process.
[[nodiscard]] const char *mktfs_tmpdir();

// The next two protect what may not be overwritten or removed, so a path that cannot be
// examined is an error; only a path that leads to nothing, or to nothing that this process
// may reach, is not the same and not inside.  Do not log.

// Whether both paths lead to the same existing file or folder, through whatever links
// and spellings.  Returns 0 or the error number (`same` is then false).
[[nodiscard]] int mktfs_same_file(const char *a, const char *b, bool *same);

// Whether `path`, or what it leads to, is `folder` or lies anywhere below it (both
// must exist).  Returns 0 or the error number (`inside` is then false).
[[nodiscard]] int mktfs_path_is_inside(const char *path, const char *folder, bool *inside);

// Claims a regular file for this descriptor until it is closed, where the file system has
// locks; files of other kinds are not claimed.  0, or EAGAIN when another descriptor has it
// or `path` no longer leads to it.  Does not log.
[[nodiscard]] int mktfs_claim_file(const char *path, int descriptor);
