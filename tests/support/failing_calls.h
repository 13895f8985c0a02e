// Calls of the code under test that fail when told to, where the CMake file has the linker turn
// calls of NAME into __wrap_NAME, operator new (nothrow) among them.
#pragma once

#include <atomic>
#include <new>

#include <gtest/gtest.h>

inline int fails_at = 0;  // counts down to the failing call; 0: none fails

inline bool fails() {
    const std::atomic_ref<int> calls(fails_at);
    int left = calls;
    while (left != 0 && !calls.compare_exchange_weak(left, left - 1)) {
    }
    return left == 1;
}

#define FAILING_IF(condition, result, name, failure, parameters, ...)                                        \
    extern "C" result __real_##name parameters;                                                              \
    extern "C" [[gnu::weak]] result __wrap_##name parameters;                                                \
    extern "C" result __wrap_##name parameters {                                                             \
        return (condition) ? failure : __real_##name(__VA_ARGS__);                                           \
    }
#define FAILING(...) FAILING_IF(fails(), __VA_ARGS__)

// clang-format off
FAILING(void *, _ZnwmRKSt9nothrow_t, nullptr, (std::size_t size, const std::nothrow_t &tag), size, tag)
// clang-format on

// Lets each call that `work` reaches fail, one in every round, until no more is reached:
// `work` has to tell that it did not succeed.  Gives the number of calls.
template <class Work>
int fail_each_call(Work work) {
    for (int call = 1;; ++call) {
        fails_at = call;
        const bool worked = work();
        const bool failed = fails_at == 0;
        fails_at = 0;
        EXPECT_NE(worked, failed) << "call " << call;
        if (!failed || worked)
            return call - 1;
    }
}
