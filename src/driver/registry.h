// The filesystem types that the first argument may select.
#pragma once

struct mktfs_backend;

struct mktfs_backend_row {
    const char *name = nullptr;  // null ends the table
    const mktfs_backend *(*get)() = nullptr;
    const char *description = nullptr;
    int listed = 0;  // nonzero: the usage text names it
};

extern const mktfs_backend_row backends[];

// The record of the first row whose name begins `argument`; null without one.
[[nodiscard]] const mktfs_backend *mktfs_find_backend(const char *argument);
