// The algorithm context and the guard that every operation runs first.
//
// A context is made by a request and serves one thread at a time; only its links
// in its provider's list of live contexts are shared, under the plugin mutex.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "tcrypto/provider.h"

enum tcrypto_context_state : std::uint32_t {
    TCRYPTO_STATE_NEW = 0,
    TCRYPTO_STATE_INITIALISED = 1,
    TCRYPTO_STATE_FINALISED = 2,
    TCRYPTO_STATE_ANY = 255,  // for the guard: accepts each of the above
};

struct tcrypto_ctx {
    const tcrypto_algorithm *algorithm = nullptr;   // what the operations use; never null in a live context
    void *private_state = nullptr;                  // made by ctx_create, owned
    const tcrypto_algorithm *registered = nullptr;  // what the registry handed out: destroys
                                                    // private_state, and is null once it did
    tcrypto_ctx *previous = nullptr;                // live-context list
    tcrypto_ctx *next = nullptr;
    tcrypto_plugin *plugin = nullptr;  // who served it
    std::uint32_t state = TCRYPTO_STATE_NEW;
    void (*cleanup)(tcrypto_ctx *ctx) = nullptr;  // optional, runs after ctx_destroy
};
static_assert(std::is_trivially_destructible_v<tcrypto_ctx>);  // wiped whole before it is freed

// Whether an operation may run on `ctx`.  0; TCRYPTO_E_PARAMETERS for a null
// context; TCRYPTO_E_ALGORITHM_TYPE when it is not of this kind;
// TCRYPTO_E_NO_FUNCTION without the operation; TCRYPTO_E_STATE when the context
// is in another state than `state` (TCRYPTO_STATE_ANY accepts all).
[[nodiscard]] int tcrypto_check_algorithm(const tcrypto_ctx *ctx, std::uint32_t kind, bool has_operation,
                                          std::uint32_t state);

// Whether an operation lacks bytes that its caller speaks of.
[[nodiscard]] inline bool tcrypto_is_missing(const void *bytes, std::size_t length) {
    return !bytes && length != 0;
}

// Destroys the private state and runs the clean-up hook, once; the record stays.
void tcrypto_destroy_private_state(tcrypto_ctx &ctx);
