// The plugin list: the providers that the library knows, and binding them.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

#include "tcrypto/registry.h"

// Tag names in the order in which they were added, each with its terminator, one
// after the other in a single allocation.
class tcrypto_tag_list {
public:
    // Appends the tags of a comma-separated list.  Empty tokens are skipped; "*"
    // sets the wildcard.  TCRYPTO_E_CONFIG for another token with a '*',
    // TCRYPTO_E_MEMORY; nothing is added then.
    [[nodiscard]] int add(std::string_view tags);
    // Whether the wildcard or this very tag was given.
    [[nodiscard]] bool serves(std::string_view tag) const;
    [[nodiscard]] bool wildcard() const { return wildcard_; }
    // " one two" for a listing; null when out of memory.
    [[nodiscard]] std::unique_ptr<char[]> text() const;

private:
    std::unique_ptr<char[]> names_;
    std::size_t length_ = 0;  // bytes at names_, terminators included
    bool wildcard_ = false;
};

struct tcrypto_plugin {
    std::unique_ptr<char[]> name;
    std::size_t name_length = 0;
    const tcrypto_provider *supplied = nullptr;        // what binding attaches; static, borrowed
    const tcrypto_internal_table *internal = nullptr;  // attached tables: null while unbound
    const tcrypto_provider *provider = nullptr;
    bool bound = false;
    tcrypto_tag_list tags;
    tcrypto_registry registry;
    tcrypto_plugin *next = nullptr;
};

// Sets the provider that binding will attach to the plugin (static, borrowed).
// Takes the library mutex; its error number when that fails.
[[nodiscard]] int tcrypto_supply_provider(tcrypto_plugin *plugin, const tcrypto_provider *provider);

// The functions below expect the caller to hold the library mutex.
[[nodiscard]] tcrypto_plugin *tcrypto_first_plugin();
// tcrypto_bind_plugin without the lock.
[[nodiscard]] int tcrypto_bind_plugin_locked(tcrypto_plugin &plugin);

// Removes one plugin or all; a bound one gets its provider's uninit and then the
// registry's, which frees its live contexts.  They take the library mutex.
int tcrypto_remove_plugin(tcrypto_plugin *plugin);
int tcrypto_remove_plugins();
