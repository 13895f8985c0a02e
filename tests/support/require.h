// What must hold, or the program ends: in a fuzz target a breach is a find.
#pragma once

#include <cstdlib>

inline void require(bool condition) {
    if (!condition)
        std::abort();
}
