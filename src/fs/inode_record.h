// The inode record: one object of the tree that a build file describes or an
// image holds.  Plain data; what acts on it is in tree/inode.h.
#pragma once

#include <cstdint>
#include <string>

struct tvo_acl;

enum mktfs_inode_type : std::int32_t {
    MKTFS_INODE_FILE = 0,
    MKTFS_INODE_DIR = 1,
    MKTFS_INODE_LINK = 2,   // symbolic link
    MKTFS_INODE_HLINK = 3,  // hard link
};

inline constexpr std::uint32_t MKTFS_ROOT_INO = 1;        // of the root of a tree that was read
inline constexpr std::uint32_t MKTFS_INODE_INLINE = 0x1;  // contents given in the build file
inline constexpr std::uint32_t MKTFS_INODE_TARGET = 0x2;  // a link's target was written explicitly

struct mktfs_inode;

// The children of a directory, in the order in which walks visit them.  Emptied
// by assigning {}.
struct mktfs_inode_list {
    mktfs_inode *first = nullptr;
    mktfs_inode *top = nullptr;  // the name index (tree/name_index.h)
};

// A node's place in the name index of the list that it is in.
struct mktfs_index_links {
    mktfs_inode *left = nullptr;
    mktfs_inode *right = nullptr;
    mktfs_inode *up = nullptr;
    std::uint64_t weight = 0;  // no smaller than those of the nodes below
};

struct mktfs_inode {
    std::int32_t type = MKTFS_INODE_FILE;
    std::uint32_t flags = 0;
    std::uint32_t ino = 0;  // 0 until resolution
    std::uint32_t uid = 0;
    std::uint32_t gid = 0;
    std::uint32_t mode = 0;  // permission bits; the file type follows from `type`
    std::int64_t mtime = 0;  // seconds
    std::uint16_t nlink = 0;
    std::string name;  // last path component; empty for the root
    // File: host source path, or the inline contents; link: target text; hard
    // link: target path inside the image; extraction: host output path.
    std::string path;
    bool has_path = false;         // false: no source at all (differs from an empty one)
    std::uint64_t size = 0;        // bytes; links: length of the target
    mktfs_inode *hlink = nullptr;  // what a hard link refers to, set by resolution
    mktfs_inode *next = nullptr;
    mktfs_inode **prev = nullptr;     // the previous element's next field, or the list head
    mktfs_inode *parent = nullptr;    // null for the root
    std::uint32_t depth = 0;          // 0 for the root
    mktfs_inode *shortcut = nullptr;  // an ancestor; see set_depth in tree/inode.cc
    std::uint64_t nchildren = 0;      // insertions so far, never decreased
    mktfs_inode_list children;
    mktfs_index_links index;
    tvo_acl *acl = nullptr;  // from the ACL text
};
