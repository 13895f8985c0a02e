#include "tcrypto/context.h"

#include <utility>

#include "tcrypto/library.h"
#include "tcrypto/lock.h"
#include "tcrypto/log.h"
#include "tcrypto/plugin.h"

TH_LOG_CONTEXT_DEFINE(tcrypto_log, "tcrypto_static");

namespace {

// What a request looks for: a name, or, when that is null, a key algorithm id.
struct wanted_algorithm {
    std::uint32_t kind = 0;
    const char *name = nullptr;
    std::uint32_t keygen_id = 0;
};

using find_slot = int (*tcrypto_internal_table::*)(tcrypto_plugin &, const char *, tcrypto_ctx **);

constexpr find_slot FIND_SLOTS[TCRYPTO_KINDS] = {
    // index: kind - 1
    &tcrypto_internal_table::find_digest,    &tcrypto_internal_table::find_rng,
    &tcrypto_internal_table::find_keygen,    &tcrypto_internal_table::find_cipher,
    &tcrypto_internal_table::find_mac,       &tcrypto_internal_table::find_kdf,
    &tcrypto_internal_table::find_signature, &tcrypto_internal_table::find_x509,
};

// Asks one bound plugin; a context that it stores has no private state yet.
int ask(tcrypto_plugin &plugin, const wanted_algorithm &wanted, tcrypto_ctx **out) {
    if (wanted.kind < 1 || wanted.kind > TCRYPTO_KINDS)
        return TCRYPTO_E_ALGORITHM_TYPE;
    if (!plugin.bound)
        return TCRYPTO_E_PLUGIN;
    if (!wanted.name)
        return plugin.internal->find_keygen_by_id(plugin, wanted.keygen_id, out);
    return (plugin.internal->*FIND_SLOTS[wanted.kind - 1])(plugin, wanted.name, out);
}

// Asks the plugins in list order, those that serve `tag` if it is given; binds
// them as it goes.  The first answer other than "not found" counts; *served is
// the plugin that gave it.
int ask_plugins(const wanted_algorithm &wanted, const char *tag, tcrypto_plugin **served, tcrypto_ctx **out) {
    const th_lock lock(tcrypto_library_mutex);
    if (lock.error() != 0)
        return lock.error();
    int err = TCRYPTO_E_NO_ENTRY;
    for (tcrypto_plugin *plugin = tcrypto_first_plugin(); plugin; plugin = plugin->next) {
        if (tag && !plugin->tags.serves(tag))
            continue;
        err = plugin->bound ? int{TCRYPTO_OK} : tcrypto_bind_plugin_locked(*plugin);
        if (err != TCRYPTO_OK)
            continue;
        *served = plugin;
        err = ask(*plugin, wanted, out);
        if (err != TCRYPTO_E_NO_ALGORITHM)
            break;
    }
    return err;
}

// Completes a context that a plugin has just made; no mutex is held meanwhile.
// On failure the context is gone and *out is null.
int create_private_state(tcrypto_ctx **out) {
    tcrypto_ctx &ctx = **out;
    if (const int err = ctx.registered->ctx_create(ctx.registered, &ctx.private_state); err != TCRYPTO_OK) {
        ctx.plugin->internal->release_context(std::exchange(*out, nullptr));
        return err;
    }
    return TCRYPTO_OK;
}

int request(const wanted_algorithm &wanted, const char *tag, tcrypto_plugin **served, tcrypto_ctx **out) {
    if (out)
        *out = nullptr;
    if (!tcrypto_is_initialised())
        return TCRYPTO_E_NOT_INITIALIZED;
    if (const int err = ask_plugins(wanted, tag, served, out); err != TCRYPTO_OK)
        return err;
    return out ? create_private_state(out) : int{TCRYPTO_OK};
}

}  // namespace

int tcrypto_check_algorithm(const tcrypto_ctx *ctx, std::uint32_t kind, bool has_operation,
                            std::uint32_t state) {
    if (!ctx)
        return TCRYPTO_E_PARAMETERS;
    if (ctx->algorithm->kind != kind)
        return TCRYPTO_E_ALGORITHM_TYPE;
    if (!has_operation)
        return TCRYPTO_E_NO_FUNCTION;
    return state == TCRYPTO_STATE_ANY || ctx->state == state ? TCRYPTO_OK : TCRYPTO_E_STATE;
}

void tcrypto_destroy_private_state(tcrypto_ctx &ctx) {
    if (const auto *algorithm = std::exchange(ctx.registered, nullptr))
        algorithm->ctx_destroy(std::exchange(ctx.private_state, nullptr));
    if (const auto hook = std::exchange(ctx.cleanup, nullptr))
        hook(&ctx);
}

int tcrypto_request_algorithm(std::uint32_t kind, const char *name, const char *plugin, std::uint32_t,
                              tcrypto_ctx **out) {
    if (!name)
        return TCRYPTO_E_PARAMETERS;
    tcrypto_plugin *served = nullptr;
    return request({.kind = kind, .name = name}, plugin, &served, out);
}

int tcrypto_find_keygen_by_alg(std::uint32_t id, tcrypto_ctx **out, const char **plugin) {
    tcrypto_plugin *served = nullptr;
    const char *tag = plugin ? *plugin : nullptr;
    if (const int err = request({.kind = TCRYPTO_KEYGEN, .keygen_id = id}, tag, &served, out);
        err != TCRYPTO_OK)
        return err;
    if (plugin)
        *plugin = served->name.get();
    return TCRYPTO_OK;
}

int tcrypto_get_algorithm(tcrypto_plugin *plugin, std::uint32_t kind, const char *name, tcrypto_ctx **out) {
    if (!plugin || !name)
        return TCRYPTO_E_PARAMETERS;
    if (out)
        *out = nullptr;
    {
        const th_lock lock(tcrypto_library_mutex);
        const int err = lock.error() != 0 ? lock.error() : ask(*plugin, {.kind = kind, .name = name}, out);
        if (err != TCRYPTO_OK || !out)
            return err;
    }
    return create_private_state(out);
}

void tcrypto_release_ctx(tcrypto_ctx *ctx) {
    if (!ctx)
        return;
    tcrypto_destroy_private_state(*ctx);
    ctx->plugin->internal->release_context(ctx);
}

const char *tcrypto_plugin_name(const tcrypto_ctx *ctx) {
    return ctx && ctx->plugin ? ctx->plugin->name.get() : nullptr;
}

int tcrypto_cipher_request(const char *name, const char *plugin, std::uint32_t flags, tcrypto_ctx **out) {
    return tcrypto_request_algorithm(TCRYPTO_CIPHER, name, plugin, flags, out);
}

int tcrypto_mac_request(const char *name, const char *plugin, std::uint32_t flags, tcrypto_ctx **out) {
    return tcrypto_request_algorithm(TCRYPTO_MAC, name, plugin, flags, out);
}

int tcrypto_kdf_request(const char *name, const char *plugin, std::uint32_t flags, tcrypto_ctx **out) {
    return tcrypto_request_algorithm(TCRYPTO_KDF, name, plugin, flags, out);
}

int tcrypto_x509_request(const char *name, const char *plugin, std::uint32_t flags, tcrypto_ctx **out) {
    return tcrypto_request_algorithm(TCRYPTO_X509, name, plugin, flags, out);
}
