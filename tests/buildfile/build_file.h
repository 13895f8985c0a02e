// A build file under test: a type that takes build files is selected, messages are
// captured (fatal ones return) and the tree is empty.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "buildfile/options.h"
#include "buildfile/parser.h"
#include "buildfile/setters.h"
#include "fs/filesystem.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "tree/inode.h"

using namespace std::literals;

class build_file : public testing::Test {
protected:
    build_file() { restart(); }
    ~build_file() override {
        restart();
        mktfs_set_backend(nullptr);
    }

    void restart() {
        mktfs_filesystem_free(&fs());
        mktfs_backend_acls_free();
        fs() = {};
        log.clear();
        mktfs_set_backend(&backend);
        (void)mktfs_filesystem_build_init(&fs());
    }

    // Writes the text below an empty first line, since the column of a first line
    // counts on from the file before.
    std::string write(std::string_view text) { return dir.file("in", "\n"s.append(text)); }

    // What was logged since the last call: "level line:column:message", without the file name.
    std::string messages() {
        std::string all;
        for (const log_line &line : log.take())
            all += std::to_string(line.level) + " " +
                   line.text.substr(line.text.starts_with(dir.path()) ? line.text.find(':') + 1 : 0);
        return all;
    }

    static mktfs_filesystem &fs() { return *mktfs_get_filesystem(); }

    temp_dir dir;
    log_capture log;
    mktfs_backend backend = {.name = "TEST",
                             .flags = MKTFS_BACKEND_SORTED | MKTFS_BACKEND_HARDLINKS,
                             .parser = mktfs_base_parser,
                             .option_handler = base_option_handler,
                             .inode_attr = base_inode_attr_fct};
};
