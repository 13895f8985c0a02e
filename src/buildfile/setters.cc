#include "buildfile/setters.h"

#include <new>
#include <string_view>

#include "acl/acl.h"
#include "attributes/values.h"
#include "base/log.h"
#include "fs/diag.h"
#include "fs/filesystem.h"
#include "tree/inode.h"
#include "tree/text.h"

namespace {

// Owns every list that was given to an inode: the tree only borrows them, and an inode may
// be dropped or merged into another one at any time.
class acl_pool {
public:
    ~acl_pool() { clear(); }

    // Returns the list, or null and frees it when memory is out.
    tvo_acl *keep(tvo_acl_ptr acl) {
        auto *added = new (std::nothrow) node{first_, nullptr};
        if (!added)
            return nullptr;
        first_ = added;
        added->acl = std::move(acl);
        return added->acl.get();
    }

    void clear() {
        while (first_) {
            const node *old = first_;
            first_ = old->next;
            delete old;
        }
    }

private:
    struct node {
        node *next;
        tvo_acl_ptr acl;
    };
    node *first_ = nullptr;
};

constinit acl_pool acls;

bool backend_has_acls() {
    return (mktfs_backend_or_none().flags & MKTFS_BACKEND_ACLS) != 0;
}

// A new list from the text, owned by the pool; null when the text is refused.
tvo_acl *acl_from_text(const char *text) {
    tvo_acl_ptr acl;
    if (const int err = mktfs_str2acl(text, th_out(acl)); err != 0)
        return nullptr;
    return acls.keep(std::move(acl));
}

// Copies the contents; false when memory is out.
bool store_contents(mktfs_inode &inode, std::string_view contents) {
    if (!mktfs_set_path(inode, contents))
        return false;
    inode.flags |= MKTFS_INODE_INLINE;
    inode.size = contents.size();
    return true;
}

}  // namespace

mktfs_inode *mktfs_backend_inode_new(std::int32_t type) {
    mktfs_inode *inode = mktfs_inode_make(mktfs_get_filesystem(), type);
    if (!inode)
        mktfs_log(MKTFS_LOG_FATAL, "unable to allocate memory for inode\n");
    return inode;
}

void mktfs_backend_inode_setuid(mktfs_inode *inode, const char *text) {
    if (inode && mktfs_str2uid(text, &inode->uid) != 0)
        mktfs_parse_error("invalid uid value '%s'\n", mktfs_or_nil(text));
}

void mktfs_backend_inode_setgid(mktfs_inode *inode, const char *text) {
    if (inode && mktfs_str2uid(text, &inode->gid) != 0)
        mktfs_parse_error("invalid gid value '%s'\n", mktfs_or_nil(text));
}

void mktfs_backend_inode_setmode(mktfs_inode *inode, const char *text) {
    if (inode && mktfs_str2mode(text, &inode->mode) != 0)
        mktfs_parse_error("invalid mode value '%s'\n", mktfs_or_nil(text));
}

void mktfs_backend_inode_setacl(mktfs_inode *inode, const char *text) {
    if (!inode)
        return;
    if (!backend_has_acls())
        mktfs_parse_error("acls are not supported by this backend\n");
    inode->acl = acl_from_text(text);
    if (!inode->acl)
        mktfs_parse_error("invalid acl value '%s'\n", mktfs_or_nil(text));
}

void mktfs_backend_inode_setmtime(mktfs_inode *inode, const char *text) {
    const char *format = mktfs_get_filesystem()->mtimefmt.c_str();
    if (inode && mktfs_str2mtime(format, text, &inode->mtime) != 0)
        mktfs_parse_error("invalid mtime value '%s'\n", mktfs_or_nil(text));
}

void mktfs_backend_inode_setcontent(mktfs_inode *inode, const char *text) {
    if (!inode || !text)
        return;
    std::string_view contents(text);
    if (contents.starts_with('\n'))
        contents.remove_prefix(1);
    if (!store_contents(*inode, contents))
        mktfs_parse_error("failed to allocate contents memory for inode\n");
}

void mktfs_backend_acls_free() {
    acls.clear();
}
