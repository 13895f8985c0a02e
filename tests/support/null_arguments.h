// Null in the place of every argument that needs a value.
#pragma once

#include <cstddef>
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
    const auto call_without = [&](auto position) {
        std::tuple<T...> changed(arguments...);
        auto &argument = std::get<position>(changed);
        if constexpr (std::is_pointer_v<std::remove_reference_t<decltype(argument)>>) {
            if (std::exchange(argument, nullptr) != nullptr) {
                prepare();
                answers.push_back(std::apply(function, changed));
            }
        }
    };
    [&]<std::size_t... I>(std::index_sequence<I...>) {
        (call_without(std::integral_constant<std::size_t, I>()), ...);
    }
    (std::index_sequence_for<T...>());
    return answers;
}

template <class... T>
std::vector<int> answers_to_null(int (*function)(T...), std::type_identity_t<T>... arguments) {
    return answers_to_null_after([] {}, function, arguments...);
}
