#include "driver/usage.h"

#include "base/log.h"
#include "driver/registry.h"
#include "fs/filesystem.h"

namespace {

constexpr int MAX_LINES = 5;

// One option: its column and the lines beside it, up to the first null.
struct option_help {
    const char *column;
    const char *lines[MAX_LINES];
};

constexpr const char *SYNOPSIS[] = {
    "Building a fileystem\n",
    "mktfs <fstype> -a -o <output> [-r <paths:...>] -s -v <input>\n\n",
    "Extracting a fileystem\n",
    "mktfs <fstype> -a -f -o <output> -v -x <input>\n\n",
    "Verifying a fileystem\n",
    "mktfs <fstype> -a -y <input>\n\n",
    "Filesystem specific option information\n",
    "mktfs <fstype> -h\n\n",
};

constexpr option_help OPTIONS[] = {
    {"-a", {"Abort on warnings [O]", "A warning will lead to execution failure"}},
    {"-f",
     {"Force [O]", "Forces extraction to occur if target folder already exists. Target folder",
      "is removed before extraction begins (only valid with -x option)"}},
    {"-h", {"help [O]", "prints this help menu"}},
    {"-o <output>",
     {"output location [M]", "Output image file when building filesystem images",
      "Output folder when extracting filesystem images"}},
    {"-r <paths:...>",
     {"Filesystem object search paths [O]", "List of ':' separated paths searched in given order to resolve",
      "objects (files, links, etc.) when building filesystems",
      "NOTE: If this value is not given, the search path will default to",
      "the TAV_TARGET env variable and error out if it is not defined"}},
    {"-s", {"print stats when building filesystems [O]"}},
    {"-v",
     {"print additional information when building or extracting filesystems [O]",
      "This is mostly meant for debugging or showing some progress",
      "NOTE: Can be set multiple times to increase verbosity"}},
    {"-x", {"Extract a filesystem image and dump the contents to <output> [O]"}},
    {"-y", {"Verify a filesystem image [O]"}},
    {"<input>",
     {"Input file [M]", "This value is the filesystem build file when building an image",
      "This value is the filesystem image file when extracting an image",
      "This value is the filesystem image file when verifying an image"}},
};

void print_option(const option_help &option) {
    mktfs_log(MKTFS_LOG_INFO, "  %-18s%s\n", option.column, option.lines[0]);
    for (int i = 1; i < MAX_LINES && option.lines[i]; ++i)
        mktfs_log(MKTFS_LOG_INFO, "%20s%s\n", "", option.lines[i]);
    mktfs_log(MKTFS_LOG_INFO, "\n");
}

void print_general_part() {
    for (const char *line : SYNOPSIS)
        mktfs_log(MKTFS_LOG_INFO, "%s", line);
    mktfs_log(MKTFS_LOG_INFO, "Options: [M] = mandatory, [O] = optional\n\n");
    for (const option_help &option : OPTIONS)
        print_option(option);
}

void print_types() {
    mktfs_log(MKTFS_LOG_INFO, "Supported <fstype> values:\n");
    for (const mktfs_backend_row *row = backends; row->name; ++row) {
        if (row->listed != 0)
            mktfs_log(MKTFS_LOG_INFO, "  %s: %s\n", row->name, row->description);
    }
    mktfs_log(MKTFS_LOG_INFO, "\n");
}

void print_type_options(const mktfs_backend &backend) {
    mktfs_log(MKTFS_LOG_INFO, "%s Filesystem:\n\nOptions: [M] = mandatory, [O] = optional\n\n", backend.name);
    if (backend.usage)
        backend.usage();
    mktfs_log(MKTFS_LOG_INFO, "\n");
}

}  // namespace

void mktfs_usage(int full) {
    mktfs_log(MKTFS_LOG_INFO, "mktfs - Build TAV Supported Filesystems\n\n");
    if (full != 0)
        print_general_part();
    const mktfs_backend *backend = mktfs_get_backend();
    if (backend)
        print_type_options(*backend);
    else
        print_types();
}
