// A temporary folder, removed with all in it at the end of its scope.  Helpers that fail throw.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

class temp_dir {
public:
    temp_dir() : path_((std::filesystem::temp_directory_path() / "mktfs-test-XXXXXX").string()) {
        if (!mkdtemp(path_.data()))
            throw std::runtime_error("cannot make " + path_);
    }
    ~temp_dir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    temp_dir(temp_dir &&) = delete;

    [[nodiscard]] const std::string &path() const { return path_; }
    // The path of an entry below the folder; nothing is made.
    [[nodiscard]] std::string operator/(std::string_view name) const {
        return path_ + "/" + std::string(name);
    }
    // These make an entry and give its path; folders and files with the folders above them.
    std::string folder(std::string_view name) const {
        std::filesystem::create_directories(*this / name);
        return *this / name;
    }
    std::string file(std::string_view name, std::string_view contents) const {
        std::filesystem::create_directories(std::filesystem::path(*this / name).parent_path());
        if (!(std::ofstream(*this / name, std::ios::binary) << contents).flush())
            throw std::runtime_error("cannot write " + (*this / name));
        return *this / name;
    }
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
