// A temporary folder that is removed, with everything in it, at the end of its
// scope.  Failures of the helpers end the test program (they throw).
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

class temp_dir {
public:
    temp_dir() {
        std::string name = (std::filesystem::temp_directory_path() / "mktfs-test-XXXXXX").string();
        if (!mkdtemp(name.data()))
            throw std::runtime_error("cannot make " + name);
        path_ = name;
    }
    ~temp_dir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    temp_dir(const temp_dir &) = delete;
    temp_dir &operator=(const temp_dir &) = delete;

    [[nodiscard]] const std::string &path() const { return path_; }
    // The path of an entry below the folder; nothing is made.
    [[nodiscard]] std::string operator/(std::string_view name) const {
        return path_ + "/" + std::string(name);
    }
    // Makes a folder, with those above it, and gives its path.
    std::string folder(std::string_view name) const {
        std::filesystem::create_directories(*this / name);
        return *this / name;
    }
    // Writes a file, makes the folders above it, and gives its path.
    std::string file(std::string_view name, std::string_view contents) const {
        const std::string path = *this / name;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream out(path, std::ios::binary);
        if (!out.write(contents.data(), static_cast<std::streamsize>(contents.size())).flush())
            throw std::runtime_error("cannot write " + path);
        return path;
    }
    // Makes a symbolic link and gives its path.
    std::string link(std::string_view name, std::string_view target) const {
        std::filesystem::create_symlink(target, *this / name);
        return *this / name;
    }

private:
    std::string path_;
};

// The whole contents of a file.
inline std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw std::runtime_error("cannot read " + path);
    return {std::istreambuf_iterator<char>(in), {}};
}
