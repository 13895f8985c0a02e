// Whether work that is done again and again lets go of what it took.
#pragma once

#include <gtest/gtest.h>
#include <malloc.h>

#include <filesystem>
#include <fstream>
#include <string>

#ifdef __has_feature
constexpr bool SANITIZED = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool SANITIZED = true;
#else
constexpr bool SANITIZED = false;
#endif

// Memory, of which `tolerated` bytes for each round may be the libraries' own, descriptors, and mappings
// of files in the folder.  A sanitizer finds leaks itself.
template <class Work>
void expect_nothing_kept(const std::string &folder, std::uint64_t tolerated, Work work) {
    constexpr std::uint64_t rounds = 100, page = 4096;
    struct resources {
        std::uint64_t bytes = 0, pages = 0;
        std::ptrdiff_t descriptors = 0;
    };
    const auto after_some = [&] {
        for (std::uint64_t round = 0; round < rounds; ++round)
            work();
        const std::filesystem::directory_iterator open("/proc/self/fd");
        resources held{.descriptors = std::distance(begin(open), end(open))};
        std::ifstream("/proc/self/statm") >> held.pages;
        const auto memory = mallinfo2();
        held.bytes = memory.uordblks + memory.hblkhd;
        return held;
    };
    const resources before = after_some(), after = after_some();
    EXPECT_EQ(after.descriptors, before.descriptors);
    EXPECT_TRUE(SANITIZED || after.bytes < before.bytes + rounds * tolerated) << after.bytes - before.bytes;
    EXPECT_TRUE(SANITIZED || after.pages * page < before.pages * page + rounds * page)
        << after.pages - before.pages;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
        EXPECT_EQ(line.find(folder), std::string::npos) << line;
}
