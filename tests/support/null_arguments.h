// Null in the place of every argument that needs a value.
#pragma once

#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

// What a function answers when one of the pointers that are given here, each in turn, is
// null instead; `prepare` runs before every call.
template <class Prepare, class... T>
std::vector<int> answers_to_null_after(Prepare prepare, int (*function)(T...),
                                       std::type_identity_t<T>... arguments) {
    std::vector<int> answers;
    const std::tuple<T...> given(arguments...);
    std::tuple<T...> changed = given;
    const auto call_without = [&](auto &argument) {
        if constexpr (std::is_pointer_v<std::remove_reference_t<decltype(argument)>>)
            if (std::exchange(argument, nullptr) != nullptr) {
                prepare();
                answers.push_back(std::apply(function, changed));
            }
        changed = given;
    };
    std::apply([&](auto &...each) { (call_without(each), ...); }, changed);
    return answers;
}

template <class... T>
std::vector<int> answers_to_null(int (*function)(T...), std::type_identity_t<T>... arguments) {
    return answers_to_null_after([] {}, function, arguments...);
}
