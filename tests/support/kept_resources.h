// Whether work that is done again and again lets go of what it took.
#pragma once

#include <gtest/gtest.h>
#include <malloc.h>

#include <filesystem>
#include <fstream>
#include <string>

// Memory, descriptors, and mappings of files in the folder.  An allocator that a sanitizer
// puts in place tells no sizes, and finds leaks itself.
template <class Work>
void expect_nothing_kept(const std::string &folder, Work work) {
    constexpr std::size_t rounds = 100, smallest = 20;  // bytes
    const auto bytes = [] {
        const auto memory = mallinfo2();
        return memory.uordblks + memory.hblkhd;
    };
    const auto descriptors = [] {
        const std::filesystem::directory_iterator open("/proc/self/fd");
        return std::distance(begin(open), end(open));
    };
    work();  // the libraries keep some of it
    const auto open_before = descriptors();
    const std::size_t before = bytes();
    for (std::size_t round = 0; round < rounds; ++round)
        work();
    EXPECT_LT(bytes(), before + rounds * smallest);
    EXPECT_EQ(descriptors(), open_before);
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
        EXPECT_EQ(line.find(folder), std::string::npos) << line;
}
