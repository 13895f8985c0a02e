// What the tests of the libraries use all over.
#pragma once

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <new>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>

#include "support/stderr_of.h"

// Calls `function` once for every pointer of the arguments with null in its place, and
// gives the results; `before` runs before each call.  A pointer that is null anyway may
// be missing.
template <class Before, class Result, class... Parameter>
std::set<Result> with_each_null(Before before, Result (*function)(Parameter...),
                                const std::type_identity_t<Parameter> &...given) {
    std::set<Result> results;
    const auto call_without = [&]<class Type>(const Type &missing) {
        if constexpr (std::is_pointer_v<Type>) {
            before();
            if (missing)
                results.insert(
                    function(static_cast<const void *>(&given) == &missing ? Parameter{} : given...));
        }
    };
    (call_without(given), ...);
    return results;
}
template <class Result, class... Parameter>
std::set<Result> with_each_null(Result (*function)(Parameter...),
                                const std::type_identity_t<Parameter> &...given) {
    return with_each_null([] {}, function, given...);
}
