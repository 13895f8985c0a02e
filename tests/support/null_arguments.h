// What a function answers for arguments that are missing.
#pragma once

#include <cstddef>
#include <set>
#include <type_traits>
#include <utility>

// Calls `function` once for every pointer of the arguments with null in its place, and
// gives the results.  A pointer that is null anyway may be missing.
template <class Result, class... Parameter>
std::set<Result> with_each_null(Result (*function)(Parameter...),
                                const std::type_identity_t<Parameter> &...given) {
    std::set<Result> results;
    const auto call_without = [&]<class Type>(const Type &missing) {
        if constexpr (std::is_pointer_v<Type>)
            if (missing)
                results.insert(
                    function(static_cast<const void *>(&given) == &missing ? Parameter{} : given...));
    };
    (call_without(given), ...);
    return results;
}
