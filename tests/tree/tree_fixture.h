// A fresh tree for each test, under a type without hooks whose build file stands at "build:7:3".
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "fs/filesystem.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "tree/inode.h"
#include "tree/path.h"
#include "tree/placement.h"
#include "tree/search_path.h"
#include "tree/walk.h"

class tree_test : public testing::Test {
protected:
    tree_test() {
        backend.flags = MKTFS_BACKEND_SORTED | MKTFS_BACKEND_HARDLINKS;
        backend.parser.scanner_context = [](const char **file, int *line, int *column) {
            *file = "build", *line = 7, *column = 3;
        };
        mktfs_set_backend(&backend);
        fs = {};
        EXPECT_EQ(mktfs_filesystem_build_init(&fs), 0);
    }
    ~tree_test() override {
        mktfs_filesystem_free(&fs);
        mktfs_set_backend(nullptr);
    }

    // Places a new node and gives it back.
    mktfs_inode *place(std::int32_t type, const std::string &path) {
        mktfs_inode *inode = mktfs_inode_make(&fs, type);
        EXPECT_EQ(mktfs_inode_add(&fs, inode, path.c_str()), 0);
        return inode;
    }
    mktfs_inode *find(const std::string &path) { return mktfs_filesystem_find_inode(&fs, path.c_str()); }

    // What was logged since the last call, each line with its level, and the folder's path as "T".
    std::string logged() {
        std::string text;
        for (const log_line &line : log.take())
            text += std::to_string(line.level) + " " + line.text;
        for (std::size_t at; (at = text.find(dir.path())) != std::string::npos;)
            text.replace(at, dir.path().size(), 1, 'T');
        return text;
    }

    // Full paths in the order of a walk, each with a blank behind it.
    static std::string listing(int (*walk)(mktfs_inode_function, void *) = mktfs_filesystem_walk_tree) {
        std::string list;
        const auto append = [](mktfs_filesystem *, mktfs_inode *inode, void *to) {
            char path[4096] = "";
            mktfs_inode_full_path(inode, path, sizeof path);
            *static_cast<std::string *>(to) += std::string(path) + " ";
            return 0;
        };
        walk(append, &list);
        return list;
    }

    mktfs_backend backend;
    mktfs_filesystem &fs = *mktfs_get_filesystem();
    log_capture log;
    const temp_dir dir;
};
