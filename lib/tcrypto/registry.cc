#include "tcrypto/registry.h"

#include <cstring>
#include <new>
#include <utility>

#include "tcrypto/lock.h"
#include "tcrypto/log.h"
#include "tcrypto/plugin.h"

TH_LOG_CONTEXT_DEFINE(tcrypto_plugin_log, "tcrypto_plugin");

namespace {

// The plugin whose provider registers: the one that was bound last, or is being
// bound.  Under the plugin mutex.
constinit tcrypto_plugin *registering = nullptr;

constexpr const char *KIND_NAMES[TCRYPTO_KINDS] = {"digest", "rng", "keygen",    "cipher",
                                                   "mac",    "kdf", "signature", "x509"};

tcrypto_algorithm_list &list_of(tcrypto_plugin &plugin, std::uint32_t kind) {
    return plugin.registry.lists[kind - 1];
}

void append(tcrypto_algorithm_list &list, tcrypto_registration *entry) {
    (list.last ? list.last->next : list.first) = entry;
    list.last = entry;
}

void link_context(tcrypto_registry &registry, tcrypto_ctx *ctx) {
    ctx->next = registry.live;
    if (ctx->next)
        ctx->next->previous = ctx;
    registry.live = ctx;
}

void unlink_context(tcrypto_registry &registry, tcrypto_ctx *ctx) {
    (ctx->previous ? ctx->previous->next : registry.live) = ctx->next;
    if (ctx->next)
        ctx->next->previous = ctx->previous;
}

// ---- Registration

bool is_blank(const char *text) {
    return text[std::strspn(text, " \t\n\v\f\r")] == '\0';
}

int check_descriptor(const tcrypto_algorithm *algorithm) {
    if (!algorithm || !algorithm->ctx_create || !algorithm->ctx_destroy)
        return TCRYPTO_E_PARAMETERS;
    if (is_blank(algorithm->name)) {
        TH_LOG(tcrypto_plugin_log, TH_LOG_ERROR, "invalid algorithm name '%s'\n", algorithm->name);
        return TCRYPTO_E_PARAMETERS;
    }
    if (algorithm->kind < 1 || algorithm->kind > TCRYPTO_KINDS) {
        TH_LOG(tcrypto_plugin_log, TH_LOG_ERROR, "invalid algorithm type '%u' for '%s'\n", algorithm->kind,
               algorithm->name);
        return TCRYPTO_E_PARAMETERS;
    }
    const bool sized = algorithm->digest.digest_size != 0 && algorithm->digest.block_size != 0;
    return algorithm->kind == TCRYPTO_DIGEST && !sized ? TCRYPTO_E_PARAMETERS : TCRYPTO_OK;
}

// ---- Search

// Stores the first descriptor of the kind that `matches` accepts.
template <class Predicate>
int search(tcrypto_plugin &plugin, std::uint32_t kind, Predicate matches, const tcrypto_algorithm **found) {
    const th_lock lock(tcrypto_plugin_mutex);
    if (lock.error() != 0)
        return lock.error();
    for (const tcrypto_registration *entry = list_of(plugin, kind).first; entry; entry = entry->next) {
        if (matches(*entry->algorithm)) {
            *found = entry->algorithm;
            return TCRYPTO_OK;
        }
    }
    return TCRYPTO_E_NO_ALGORITHM;
}

template <class Predicate>
int find(tcrypto_plugin &plugin, std::uint32_t kind, Predicate matches, tcrypto_ctx **out) {
    const tcrypto_algorithm *algorithm = nullptr;
    const int err = search(plugin, kind, matches, &algorithm);
    if (err != TCRYPTO_OK || !out)
        return err;
    return tcrypto_new_context(plugin, *algorithm, out);
}

template <std::uint32_t Kind>
int find_by_name(tcrypto_plugin &plugin, const char *name, tcrypto_ctx **out) {
    const auto matches = [name](const tcrypto_algorithm &a) { return std::strcmp(a.name, name) == 0; };
    return find(plugin, Kind, matches, out);
}

int find_keygen_by_id(tcrypto_plugin &plugin, std::uint32_t id, tcrypto_ctx **out) {
    const auto matches = [id](const tcrypto_algorithm &a) { return a.keygen.id == id; };
    return find(plugin, TCRYPTO_KEYGEN, matches, out);
}

// ---- The rest of the internal table

int registry_init(tcrypto_plugin &plugin) {
    const th_lock lock(tcrypto_plugin_mutex);
    if (lock.error() == 0)
        registering = &plugin;
    return lock.error();
}

void wipe_and_free(tcrypto_ctx *ctx) {
    explicit_bzero(ctx, sizeof(*ctx));
    delete ctx;
}

void release_context(tcrypto_ctx *ctx) {
    {
        const th_lock lock(tcrypto_plugin_mutex);
        if (lock.error() != 0)
            return;  // still linked: leaked rather than left dangling in the list
        unlink_context(ctx->plugin->registry, ctx);
    }
    wipe_and_free(ctx);
}

// Takes the whole content out of the registry, so that no provider code runs
// under the mutex.
tcrypto_registry detach_content(tcrypto_plugin &plugin) {
    const th_lock lock(tcrypto_plugin_mutex);
    if (lock.error() != 0)
        return {};
    if (registering == &plugin)
        registering = nullptr;
    return std::exchange(plugin.registry, {});
}

void free_list(tcrypto_algorithm_list list) {
    while (list.first)
        delete std::exchange(list.first, list.first->next);
}

// A live context whose private state is still there, or null.
tcrypto_ctx *next_to_end(const tcrypto_plugin &plugin) {
    const th_lock lock(tcrypto_plugin_mutex);
    tcrypto_ctx *ctx = lock.error() == 0 ? plugin.registry.live : nullptr;
    while (ctx && !ctx->registered)
        ctx = ctx->next;
    return ctx;
}

void registry_uninit(tcrypto_plugin &plugin) {
    tcrypto_end_contexts(plugin);
    const tcrypto_registry content = detach_content(plugin);
    for (tcrypto_ctx *ctx = content.live; ctx;)
        wipe_and_free(std::exchange(ctx, ctx->next));
    for (const tcrypto_algorithm_list &list : content.lists)
        free_list(list);
}

void print_algorithms(tcrypto_plugin &plugin) {
    const th_lock lock(tcrypto_plugin_mutex);
    if (lock.error() != 0)
        return;
    for (std::size_t kind = 0; kind < TCRYPTO_KINDS; ++kind) {
        for (const tcrypto_registration *entry = plugin.registry.lists[kind].first; entry;
             entry = entry->next)
            TH_LOG(tcrypto_plugin_log, TH_LOG_INFO, "\t\t%s: %s\n", KIND_NAMES[kind], entry->algorithm->name);
    }
}

}  // namespace

constinit const tcrypto_internal_table tcrypto_registry_table = {
    .version = TCRYPTO_ABI_VERSION,
    .init = registry_init,
    .uninit = registry_uninit,
    .release_context = release_context,
    .find_digest = find_by_name<TCRYPTO_DIGEST>,
    .find_rng = find_by_name<TCRYPTO_RNG>,
    .find_cipher = find_by_name<TCRYPTO_CIPHER>,
    .find_keygen = find_by_name<TCRYPTO_KEYGEN>,
    .find_mac = find_by_name<TCRYPTO_MAC>,
    .find_kdf = find_by_name<TCRYPTO_KDF>,
    .find_signature = find_by_name<TCRYPTO_SIGNATURE>,
    .find_x509 = find_by_name<TCRYPTO_X509>,
    .find_keygen_by_id = find_keygen_by_id,
    .print_algorithms = print_algorithms,
};

int register_algorithm(const tcrypto_algorithm *algorithm) {
    if (const int err = check_descriptor(algorithm); err != TCRYPTO_OK)
        return err;
    auto *const entry = new (std::nothrow) tcrypto_registration{.algorithm = algorithm};
    if (!entry)
        return TCRYPTO_E_MEMORY;
    const th_lock lock(tcrypto_plugin_mutex);
    if (lock.error() != 0 || !registering) {
        delete entry;
        return lock.error() != 0 ? lock.error() : int{TCRYPTO_E_NOT_INITIALIZED};
    }
    append(list_of(*registering, algorithm->kind), entry);
    return TCRYPTO_OK;
}

void tcrypto_end_contexts(tcrypto_plugin &plugin) {
    while (tcrypto_ctx *const ctx = next_to_end(plugin))
        tcrypto_destroy_private_state(*ctx);
}

int tcrypto_new_context(tcrypto_plugin &plugin, const tcrypto_algorithm &algorithm, tcrypto_ctx **out) {
    auto *const ctx = new (std::nothrow) tcrypto_ctx{
        .algorithm = &algorithm,
        .registered = &algorithm,
        .plugin = &plugin,
    };
    if (!ctx)
        return TCRYPTO_E_MEMORY;
    const th_lock lock(tcrypto_plugin_mutex);
    if (lock.error() != 0) {
        delete ctx;
        return lock.error();
    }
    link_context(plugin.registry, ctx);
    *out = ctx;
    return TCRYPTO_OK;
}
