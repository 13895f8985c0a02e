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
    constexpr std::uint64_t rounds = 100;
    std::uint64_t bytes[2], pages[2];
    std::ptrdiff_t descriptors[2];
    for (const int turn : {0, 1}) {
        for (std::uint64_t round = 0; round < rounds; ++round)
            work();
        const std::filesystem::directory_iterator open("/proc/self/fd");
        descriptors[turn] = std::distance(begin(open), end(open));
        std::ifstream("/proc/self/statm") >> pages[turn];
        const auto memory = mallinfo2();
        bytes[turn] = memory.uordblks + memory.hblkhd;
    }
    EXPECT_EQ(descriptors[1], descriptors[0]);
    EXPECT_TRUE(SANITIZED || bytes[1] < bytes[0] + rounds * tolerated) << bytes[1] - bytes[0];
    EXPECT_TRUE(SANITIZED || pages[1] < pages[0] + rounds) << pages[1] - pages[0];
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
        EXPECT_EQ(line.find(folder), std::string::npos) << line;
}
