// What a piece of work writes to standard error.
#pragma once

#include <string>

#include <gtest/gtest.h>

template <class Work>
std::string stderr_of(Work work) {
    testing::internal::CaptureStderr();
    work();
    return testing::internal::GetCapturedStderr();
}
