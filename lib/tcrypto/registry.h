// What a plugin's provider registered, and the contexts that were made of it.
//
// Every plugin has a registry of its own; the plugin mutex guards all of them.
// It is never held while a provider's code runs.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tcrypto/context.h"

inline constexpr std::size_t TCRYPTO_KINDS = 8;

struct tcrypto_registration {
    const tcrypto_algorithm *algorithm = nullptr;  // static, the provider's
    tcrypto_registration *next = nullptr;
};

// In registration order; owns its entries.
struct tcrypto_algorithm_list {
    tcrypto_registration *first = nullptr;
    tcrypto_registration *last = nullptr;
};

struct tcrypto_registry {
    tcrypto_algorithm_list lists[TCRYPTO_KINDS];  // index: kind - 1
    tcrypto_ctx *live = nullptr;                  // newest first
};

// The library's side of a plugin, attached when the plugin is bound.
//
// find_*: the first descriptor of that exact name (or id).  With a non-null
// `out` a linked context without private state is stored there.  0,
// TCRYPTO_E_NO_ALGORITHM, TCRYPTO_E_MEMORY or an error number of the mutex;
// `out` is untouched on failure.
struct tcrypto_internal_table {
    std::uint32_t version = TCRYPTO_ABI_VERSION;
    // Makes `plugin` the one to which register_algorithm appends.
    int (*init)(tcrypto_plugin &plugin) = nullptr;
    // Empties the registry: frees the lists, destroys and frees live contexts.
    void (*uninit)(tcrypto_plugin &plugin) = nullptr;
    // Unlinks, wipes and frees a context whose private state is gone already.
    void (*release_context)(tcrypto_ctx *ctx) = nullptr;
    int (*find_digest)(tcrypto_plugin &plugin, const char *name, tcrypto_ctx **out) = nullptr;
    int (*find_rng)(tcrypto_plugin &plugin, const char *name, tcrypto_ctx **out) = nullptr;
    int (*find_cipher)(tcrypto_plugin &plugin, const char *name, tcrypto_ctx **out) = nullptr;
    int (*find_keygen)(tcrypto_plugin &plugin, const char *name, tcrypto_ctx **out) = nullptr;
    int (*find_mac)(tcrypto_plugin &plugin, const char *name, tcrypto_ctx **out) = nullptr;
    int (*find_kdf)(tcrypto_plugin &plugin, const char *name, tcrypto_ctx **out) = nullptr;
    int (*find_signature)(tcrypto_plugin &plugin, const char *name, tcrypto_ctx **out) = nullptr;
    int (*find_x509)(tcrypto_plugin &plugin, const char *name, tcrypto_ctx **out) = nullptr;
    int (*find_keygen_by_id)(tcrypto_plugin &plugin, std::uint32_t id, tcrypto_ctx **out) = nullptr;
    // Logs every algorithm, one per line.
    void (*print_algorithms)(tcrypto_plugin &plugin) = nullptr;
};

extern const tcrypto_internal_table tcrypto_registry_table;

// Destroys the private states of all live contexts, one at a time.  The records
// stay linked until the registry is emptied, so a context may release another one
// that it holds, in whatever order they go.
void tcrypto_end_contexts(tcrypto_plugin &plugin);

// A new linked context of `algorithm`, without private state.  TCRYPTO_E_MEMORY
// or an error number of the mutex; `out` is untouched on failure.
[[nodiscard]] int tcrypto_new_context(tcrypto_plugin &plugin, const tcrypto_algorithm &algorithm,
                                      tcrypto_ctx **out);
