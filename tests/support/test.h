// What the tests of the libraries use all over.
#pragma once

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>
#include <random>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

// Algorithms, containers and strings come with it.
#include <gmock/gmock.h>

#include "support/stderr_of.h"

// The results of `function` with null in the place of each pointer in turn that is not null
// anyway; `before` runs before each call.
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
