// What a fuzz target demands of the code under test; a breach is a find.
#pragma once

#include <cstdlib>

inline void require(bool condition) {
    if (!condition)
        std::abort();
}
