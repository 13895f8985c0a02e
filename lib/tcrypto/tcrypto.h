// The callers' side of the crypto library: algorithms are asked for by kind and
// name and answered by whichever provider ("plugin") has them; what can be done with
// them is in the headers that this one includes.  Complete interface of the library;
// mktfs uses digests, signatures, the loading of asymmetric keys and
// tcrypto_random_bytes.
//
// Every function returns 0 or one of the negative codes of tcrypto/error.h
// unless said otherwise.  The library is safe to use from several threads; one
// algorithm context or key serves one thread at a time.  A request binds its
// provider on first use, so nothing is loaded before it is needed.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tcrypto/digest.h"
#include "tcrypto/error.h"
#include "tcrypto/key.h"
#include "tcrypto/rng.h"
#include "tcrypto/signature.h"
#include "th/handle.h"

struct tcrypto_ctx;     // an algorithm context; released with tcrypto_release_ctx
struct tcrypto_key;     // key material; released with tcrypto_release_key
struct tcrypto_plugin;  // a registered provider; owned by the library

enum tcrypto_kind : std::uint32_t {
    TCRYPTO_DIGEST = 1,
    TCRYPTO_RNG = 2,
    TCRYPTO_KEYGEN = 3,
    TCRYPTO_CIPHER = 4,
    TCRYPTO_MAC = 5,
    TCRYPTO_KDF = 6,
    TCRYPTO_SIGNATURE = 7,
    TCRYPTO_X509 = 8,
};

// ---- Library, providers, lookup

// Takes a reference; the first one adds the provider "openssl" and binds as
// tcrypto_bind_plugins does for `flags`.  `plugin`: null or "openssl", else
// TCRYPTO_E_UNSUPPORTED.  TCRYPTO_E_INIT when the init mutex fails.  On failure
// the count is unchanged.
[[nodiscard]] int tcrypto_init(std::uint32_t flags, const char *plugin);
// Drops a reference; the last one removes every plugin and frees contexts that are still
// alive, which must no longer be used or released.
int tcrypto_uninit();

// Plugins.  Tags: a comma-separated list; "*" serves every tag, another token with
// a '*' is TCRYPTO_E_CONFIG.  A name that exists already gets the tags added, is
// handed back in `out` and answers TCRYPTO_E_EXISTS.
[[nodiscard]] int tcrypto_add_plugin(const char *name, const char *tags, tcrypto_plugin **out);
// By exact name, else the first that serves `tag` (may be null); TCRYPTO_E_NO_ENTRY, with a
// null *out, when there is none.
[[nodiscard]] int tcrypto_find_plugin(const char *name, const char *tag, tcrypto_plugin **out);
// Starts the plugin's provider.  TCRYPTO_E_PLUGIN_LOADED: bound already;
// TCRYPTO_E_PLUGIN_LOAD: no provider is linked in for it; TCRYPTO_E_INCOMPATIBLE:
// version; else the provider's own error.  Logs.
[[nodiscard]] int tcrypto_bind_plugin(tcrypto_plugin *plugin);
// Flag value 2: every unbound plugin, with the result of the last attempt; 1: the
// first plugin; neither: none.  Logs each failure.
[[nodiscard]] int tcrypto_bind_plugins(std::uint32_t flags);
// 1 if any plugin is registered, else 0.
[[nodiscard]] int tcrypto_got_plugins();
// Logs every plugin with its algorithms, at info level.
void tcrypto_print_plugins();

// A context of the first plugin that has the algorithm (exact name) and serves
// `plugin` (null: any).  A null `out` only asks whether there is one.  `flags` is
// ignored.  On failure *out is null: TCRYPTO_E_NOT_INITIALIZED,
// TCRYPTO_E_NO_ENTRY (no such plugin), TCRYPTO_E_NO_ALGORITHM,
// TCRYPTO_E_ALGORITHM_TYPE (not a kind), or what binding or the provider answers.
[[nodiscard]] int tcrypto_request_algorithm(std::uint32_t kind, const char *name, const char *plugin,
                                            std::uint32_t flags, tcrypto_ctx **out);
// The same of one bound plugin; TCRYPTO_E_PLUGIN when it is not bound.
[[nodiscard]] int tcrypto_get_algorithm(tcrypto_plugin *plugin, std::uint32_t kind, const char *name,
                                        tcrypto_ctx **out);
// The key generator with a numeric key algorithm id.  `plugin` on entry names
// the only provider to ask (or points at null for any); on success it points at
// the name of the provider that answered.
[[nodiscard]] int tcrypto_find_keygen_by_alg(std::uint32_t id, tcrypto_ctx **out, const char **plugin);
void tcrypto_release_ctx(tcrypto_ctx *ctx);  // null-safe; wipes the context
// Who served the context, null for a null context; valid until the last uninit.
[[nodiscard]] const char *tcrypto_plugin_name(const tcrypto_ctx *ctx);

using tcrypto_ctx_ptr = th_handle<tcrypto_ctx, tcrypto_release_ctx>;

// ---- The remaining kinds: lookup only; no operation of theirs is offered yet.

[[nodiscard]] int tcrypto_cipher_request(const char *name, const char *plugin, std::uint32_t flags,
                                         tcrypto_ctx **out);
[[nodiscard]] int tcrypto_mac_request(const char *name, const char *plugin, std::uint32_t flags,
                                      tcrypto_ctx **out);
[[nodiscard]] int tcrypto_kdf_request(const char *name, const char *plugin, std::uint32_t flags,
                                      tcrypto_ctx **out);
[[nodiscard]] int tcrypto_x509_request(const char *name, const char *plugin, std::uint32_t flags,
                                       tcrypto_ctx **out);
