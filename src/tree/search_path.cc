#include "tree/search_path.h"

#include <sys/stat.h>

#include <cerrno>
#include <string>
#include <vector>

#include "base/log.h"
#include "fs/inode_record.h"
#include "tree/host_source.h"
#include "tree/text.h"

namespace {

// A folder as it was given, with its length.
using mktfs_search_path = std::string;

// In the order of the text and of the command line.
constinit std::vector<mktfs_search_path> search_paths;

// Skips the folder silently when memory is out.
void append_search_path(mktfs_search_path &&folder) {
    try {
        search_paths.push_back(std::move(folder));
    } catch (const std::exception &) {
    }
}

void add_search_path(std::string_view field) {
    mktfs_search_path folder;
    struct stat status {};
    if (!mktfs_set_text(folder, {field}))
        return;
    if (stat(folder.c_str(), &status) != 0)
        mktfs_log(MKTFS_LOG_WARN, "search path '%s' doesn't exist!\n", folder.c_str());
    else if (!S_ISDIR(status.st_mode))
        mktfs_log(MKTFS_LOG_WARN, "search path '%s' is not a directory!\n", folder.c_str());
    else
        append_search_path(std::move(folder));
}

int take_candidate(const std::string &path, const struct stat &status, mktfs_inode &inode) {
    if (S_ISLNK(status.st_mode)) {
        const int err = mktfs_source_link(inode, path.c_str());
        if (err != 0 && err != ENOMEM)
            mktfs_log(MKTFS_LOG_ERROR, "failed to read link on '%s'\n", path.c_str());
        return err;
    }
    if (!S_ISREG(status.st_mode))
        return MKTFS_FAIL(ENOENT, "filesystem object found at path '%s' is not a file\n", path.c_str());
    return mktfs_source_file(inode, path.c_str(), status);
}

}  // namespace

int mktfs_parse_search_paths(const char *text) {
    if (!text)
        return EINVAL;
    mktfs_fields fields(text, ':');
    for (std::string_view field = fields.next(); !field.empty(); field = fields.next())
        add_search_path(field);
    return 0;
}

int mktfs_search_paths_empty() {
    return search_paths.empty();
}

void mktfs_print_search_paths() {
    mktfs_log(MKTFS_LOG_INFO, "search paths:\n");
    for (const std::string &folder : search_paths)
        mktfs_log(MKTFS_LOG_INFO, "\t%s\n", folder.c_str());
}

void mktfs_clean_search_paths() {
    search_paths = {};
}

int mktfs_resolve_search_path_inode(const char *relative_path, mktfs_inode *inode) {
    if (!relative_path || !inode)
        return EINVAL;
    std::string candidate;
    for (const std::string &folder : search_paths) {
        struct stat status {};
        if (!mktfs_set_text(candidate, {folder, "/", relative_path}))
            return ENOMEM;
        if (lstat(candidate.c_str(), &status) == 0)
            return take_candidate(candidate, status, *inode);
    }
    return ENOENT;
}
