// The beginning of a row of the provider's tables.
#pragma once

#include <cstdint>
#include <string_view>

#include "tcrypto/provider.h"

// A descriptor with name and kind, for a table that is made at compile time: a name
// that is too long does not compile there.
constexpr tcrypto_algorithm ossl_descriptor(std::uint32_t kind, std::string_view name) {
    tcrypto_algorithm algorithm{.kind = kind};
    for (std::size_t i = 0; i < name.size(); ++i)
        algorithm.name[i < sizeof(algorithm.name) - 1 ? i : sizeof(algorithm.name)] = name[i];
    return algorithm;
}

// A descriptor of an algorithm whose contexts have no private state.
constexpr tcrypto_algorithm ossl_stateless_descriptor(std::uint32_t kind, std::string_view name) {
    tcrypto_algorithm algorithm = ossl_descriptor(kind, name);
    algorithm.ctx_create = [](const tcrypto_algorithm *, void **state) {
        *state = nullptr;
        return int{TCRYPTO_OK};
    };
    algorithm.ctx_destroy = [](void *) {};
    return algorithm;
}
