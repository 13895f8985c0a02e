#include "buildfile/parser.h"

#include <cstdlib>
#include <utility>

#include "base/log.h"
#include "buildfile/parser_actions.h"
#include "buildfile/scanner.h"
#include "buildfile/setters.h"
#include "fs/filesystem.h"
#include "th/handle.h"
#include "tree/inode.h"
#include "tree/search_path.h"

namespace {

using token_text = th_handle<char, std::free>;

// The object being described; null outside an object statement.
mktfs_inode *new_inode = nullptr;

void drop_unfinished_object() {
    mktfs_inode_release(std::exchange(new_inode, nullptr));
}

// Attributes that exist for objects and for the whole image.
void set_on_object_or_image(void (*set)(mktfs_inode *, const char *), const char *option, const char *value) {
    if (new_inode != nullptr)
        set(new_inode, value);
    else
        mktfs_backend_option_handler(option, value);
}

void report_outcome(int result) {
    switch (result) {
    case 0:
        break;
    case 1:
        mktfs_log(MKTFS_LOG_FATAL, "\nParsing config file failed.\n");
        break;
    case 2:
        mktfs_log(MKTFS_LOG_FATAL, "\nParser out of memory.\n");
        break;
    default:
        mktfs_log(MKTFS_LOG_FATAL, "\nUnknown error parsing config file.\n");
        break;
    }
}

}  // namespace

int base_parse_cfg_file(const char *path) {
    drop_unfinished_object();
    base_scanner_open(path);
    report_outcome(base_parse());
    drop_unfinished_object();
    return base_scanner_close();
}

void base_error(const char *message) {
    const char *file = nullptr;
    int line = 0;
    int column = 0;
    base_scanner_context(&file, &line, &column);
    mktfs_log(MKTFS_LOG_ERROR, "%s:%d:%d:%s\n", mktfs_shown(file), line, column, message);
}

void base_begin_object(std::int32_t type) {
    new_inode = mktfs_backend_inode_new(type);
}

void base_set_owner(char *value) {
    const token_text text(value);
    set_on_object_or_image(mktfs_backend_inode_setuid, "uid", value);
}

void base_set_group(char *value) {
    const token_text text(value);
    set_on_object_or_image(mktfs_backend_inode_setgid, "gid", value);
}

void base_set_mtime(char *value) {
    const token_text text(value);
    set_on_object_or_image(mktfs_backend_inode_setmtime, "mtime", value);
}

void base_set_attribute(char *name, char *value) {
    const token_text name_text(name);
    const token_text value_text(value);
    if (new_inode != nullptr)
        mktfs_backend_inode_attr(new_inode, name, value);
    else
        mktfs_backend_option_handler(name, value);
}

void base_set_mode(char *value) {
    const token_text text(value);
    mktfs_backend_inode_setmode(new_inode, value);
}

void base_set_acl(char *value) {
    const token_text text(value);
    mktfs_backend_inode_setacl(new_inode, value);
}

void base_place_object(char *path, char *source) {
    const token_text path_text(path);
    const token_text source_text(source);
    mktfs_backend_inode_add(std::exchange(new_inode, nullptr), path, source);
}

void base_place_contents(char *path, char *contents) {
    const token_text path_text(path);
    const token_text contents_text(contents);
    mktfs_backend_inode_setcontent(new_inode, contents);
    mktfs_backend_inode_add(std::exchange(new_inode, nullptr), path, nullptr);
}
