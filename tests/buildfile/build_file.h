// A build file under test: the tree of the tree tests, under a type that takes build files.
#pragma once

#include <string_view>

#include "attributes/options.h"
#include "buildfile/parser.h"
#include "buildfile/setters.h"
#include "tree/tree_fixture.h"

using namespace std::literals;

class build_file : public tree_test {
protected:
    build_file() {
        backend.name = "TEST";
        backend.parser = mktfs_base_parser;
        backend.option_handler = base_option_handler;
        backend.inode_attr = base_inode_attr_fct;
    }
    ~build_file() override { mktfs_backend_acls_free(); }

    // Writes the text below an empty first line, since the column of a first line
    // counts on from the file before.
    std::string write(std::string_view text) { return dir.file("in", "\n"s.append(text)); }

    // What was logged since the last call: "level line:column:message", without the file name.
    std::string messages() {
        std::string all = logged();
        for (std::size_t at; (at = all.find("T/in:")) != std::string::npos;)
            all.erase(at, 5);
        return all;
    }
};
