// A file of the run that is gone when its object is, or when the process ends before.
#pragma once

#include <climits>

class mktfs_temporary_file {
public:
    mktfs_temporary_file() = default;
    mktfs_temporary_file(const mktfs_temporary_file &) = delete;
    mktfs_temporary_file &operator=(const mktfs_temporary_file &) = delete;
    ~mktfs_temporary_file();

    // Sets the path to `start`, then `pattern`, which ends in "XXXXXX".  False when that is
    // too long.
    [[nodiscard]] bool name(const char *start, const char *pattern);
    // Makes the file, its owner's only, and fills in the last characters of the path.  0 or
    // the system's error number; does not log.
    [[nodiscard]] int create();
    // Renames the file, which then stays.  0 or the system's error number; does not log.
    [[nodiscard]] int rename_to(const char *path);

    [[nodiscard]] const char *path() const { return path_; }
    [[nodiscard]] int descriptor() const { return descriptor_; }

private:
    char path_[PATH_MAX] = "";
    int descriptor_ = -1;
    int slot_ = -1;  // of the clean-up
    bool renamed_ = false;
};
