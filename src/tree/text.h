// Texts of the tree: strings that report a lack of memory instead of throwing, and
// lists with a separator.
#pragma once

#include <algorithm>
#include <exception>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

#include "fs/inode_record.h"

// Writes the parts one after the other into `out`.  False when memory is out.
[[nodiscard]] inline bool mktfs_set_text(std::string &out, std::initializer_list<std::string_view> parts) {
    try {
        std::string text;
        for (const std::string_view part : parts)
            text += part;
        out = std::move(text);
        return true;
    } catch (const std::exception &) {
        return false;
    }
}

// Gives the node a source, target or host path.  False when memory is out.
[[nodiscard]] inline bool mktfs_set_path(mktfs_inode &inode, std::string_view path) {
    inode.has_path = mktfs_set_text(inode.path, {path});
    return inode.has_path;
}

// Reads the fields of a text between separators; empty ones vanish.
class mktfs_fields {
public:
    mktfs_fields(std::string_view text, char separator) : rest_(text), separator_(separator) {}
    // The next field, or an empty one at the end.
    [[nodiscard]] std::string_view next() {
        rest_.remove_prefix(std::min(rest_.find_first_not_of(separator_), rest_.size()));
        const std::string_view field = rest_.substr(0, rest_.find(separator_));
        rest_.remove_prefix(field.size());
        return field;
    }

private:
    std::string_view rest_;
    char separator_;
};
