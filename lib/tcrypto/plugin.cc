#include "tcrypto/plugin.h"

#include <algorithm>
#include <new>
#include <utility>

#include "tcrypto/lock.h"
#include "tcrypto/log.h"

namespace {

enum bind_flags : std::uint32_t {
    BIND_FIRST = 1,
    BIND_ALL = 2,
};

constinit tcrypto_plugin *first_plugin = nullptr;  // under the library mutex

tcrypto_plugin *by_name(std::string_view name) {
    tcrypto_plugin *plugin = first_plugin;
    while (plugin && std::string_view(plugin->name.get(), plugin->name_length) != name)
        plugin = plugin->next;
    return plugin;
}

tcrypto_plugin *by_tag(std::string_view tag) {
    tcrypto_plugin *plugin = first_plugin;
    while (plugin && !plugin->tags.serves(tag))
        plugin = plugin->next;
    return plugin;
}

void append(tcrypto_plugin *plugin) {
    tcrypto_plugin **end = &first_plugin;
    while (*end)
        end = &(*end)->next;
    *end = plugin;
}

// A plugin outside the list; null when out of memory.
std::unique_ptr<tcrypto_plugin> make_plugin(std::string_view name) {
    std::unique_ptr<tcrypto_plugin> plugin(new (std::nothrow) tcrypto_plugin);
    if (!plugin)
        return nullptr;
    plugin->name.reset(new (std::nothrow) char[name.size() + 1]());
    if (!plugin->name)
        return nullptr;
    std::ranges::copy(name, plugin->name.get());
    plugin->name_length = name.size();
    return plugin;
}

// ---- Binding

void detach(tcrypto_plugin &plugin) {
    plugin.internal = nullptr;
    plugin.provider = nullptr;
}

int check_versions(const tcrypto_plugin &plugin) {
    if (plugin.provider->version == TCRYPTO_ABI_VERSION && plugin.internal->version == TCRYPTO_ABI_VERSION)
        return TCRYPTO_OK;
    TH_LOG(tcrypto_plugin_log, TH_LOG_ERROR,
           "plugin version (%u) incompatible with tcrypto library version (%u)\n", plugin.provider->version,
           TCRYPTO_ABI_VERSION);
    return TCRYPTO_E_INCOMPATIBLE;
}

int start(tcrypto_plugin &plugin) {
    if (const int err = check_versions(plugin); err != TCRYPTO_OK)
        return err;
    if (const int err = plugin.internal->init(plugin); err != TCRYPTO_OK) {
        TH_LOG(tcrypto_plugin_log, TH_LOG_ERROR, "'%s' plugin global initialization failed\n",
               plugin.name.get());
        return err;
    }
    if (const int err = plugin.provider->init(); err != TCRYPTO_OK) {
        TH_LOG(tcrypto_plugin_log, TH_LOG_ERROR, "'%s' plugin initialization failed\n", plugin.name.get());
        plugin.internal->uninit(plugin);
        return err;
    }
    return TCRYPTO_OK;
}

// Binds for a caller that can do without the plugin.
int try_bind(tcrypto_plugin &plugin) {
    const int err = tcrypto_bind_plugin_locked(plugin);
    if (err != TCRYPTO_OK)
        TH_LOG(tcrypto_plugin_log, TH_LOG_ERROR, "failed to load plugin %s (%s)\n", plugin.name.get(),
               tcrypto_strerror(err));
    return err;
}

// Before a plugin is deleted.
void unbind(tcrypto_plugin &plugin) {
    if (!plugin.bound)
        return;
    plugin.provider->uninit();
    plugin.internal->uninit(plugin);
}

// ---- Listing

void print_plugin(tcrypto_plugin &plugin) {
    const std::unique_ptr<char[]> tags = plugin.tags.text();
    TH_LOG(tcrypto_plugin_log, TH_LOG_INFO, "Plugin: %s\n", plugin.name.get());
    TH_LOG(tcrypto_plugin_log, TH_LOG_INFO, "\t%s:%s%s\n", "Tags", plugin.tags.wildcard() ? " *" : "",
           tags ? tags.get() : "");
    TH_LOG(tcrypto_plugin_log, TH_LOG_INFO, "\tStatus: %s\n", plugin.bound ? "active" : "inactive");
    if (!plugin.bound)
        return;
    TH_LOG(tcrypto_plugin_log, TH_LOG_INFO, "\tDescription: %s\n", plugin.provider->get_description());
    plugin.internal->print_algorithms(plugin);
}

// ---- Tag lists

// Calls visit(token) for every non-empty token; stops when it returns false.
template <class Visit>
bool for_each_token(std::string_view text, char separator, Visit visit) {
    while (!text.empty()) {
        const std::string_view token = text.substr(0, text.find(separator));
        text.remove_prefix(std::min(token.size() + 1, text.size()));
        if (!token.empty() && !visit(token))
            return false;
    }
    return true;
}

}  // namespace

int tcrypto_tag_list::add(std::string_view tags) {
    bool wildcard = wildcard_;
    const bool valid = for_each_token(tags, ',', [&wildcard](std::string_view token) {
        wildcard = wildcard || token == "*";
        return token == "*" || token.find('*') == token.npos;
    });
    if (!valid)
        return TCRYPTO_E_CONFIG;
    std::unique_ptr<char[]> names(new (std::nothrow) char[length_ + tags.size() + 1]);
    if (!names)
        return TCRYPTO_E_MEMORY;
    char *end = std::copy_n(names_.get(), length_, names.get());
    for_each_token(tags, ',', [&end](std::string_view token) {
        if (token != "*") {
            end = std::ranges::copy(token, end).out;
            *end++ = '\0';
        }
        return true;
    });
    length_ = static_cast<std::size_t>(end - names.get());
    names_ = std::move(names);
    wildcard_ = wildcard;
    return TCRYPTO_OK;
}

bool tcrypto_tag_list::serves(std::string_view tag) const {
    const auto differs = [tag](std::string_view token) { return token != tag; };
    return wildcard_ || !for_each_token({names_.get(), length_}, '\0', differs);
}

std::unique_ptr<char[]> tcrypto_tag_list::text() const {
    std::unique_ptr<char[]> text(new (std::nothrow) char[length_ + 1]);
    if (!text)
        return nullptr;
    char *out = text.get();
    for_each_token({names_.get(), length_}, '\0', [&out](std::string_view token) {
        *out++ = ' ';
        out = std::ranges::copy(token, out).out;
        return true;
    });
    *out = '\0';
    return text;
}

tcrypto_plugin *tcrypto_first_plugin() {
    return first_plugin;
}

int tcrypto_add_plugin(const char *name, const char *tags, tcrypto_plugin **out) {
    if (!name || !out)
        return TCRYPTO_E_PARAMETERS;
    *out = nullptr;
    const th_lock lock(tcrypto_library_mutex);
    if (lock.error() != 0)
        return lock.error();
    if (tcrypto_plugin *const known = by_name(name)) {
        *out = known;
        const int err = tags ? known->tags.add(tags) : int{TCRYPTO_OK};
        return err == TCRYPTO_OK ? int{TCRYPTO_E_EXISTS} : err;
    }
    std::unique_ptr<tcrypto_plugin> plugin = make_plugin(name);
    if (!plugin)
        return TCRYPTO_E_MEMORY;
    if (const int err = tags ? plugin->tags.add(tags) : int{TCRYPTO_OK}; err != TCRYPTO_OK)
        return err;
    *out = plugin.release();
    append(*out);
    return TCRYPTO_OK;
}

int tcrypto_find_plugin(const char *name, const char *tag, tcrypto_plugin **out) {
    if (!out)
        return TCRYPTO_E_PARAMETERS;
    *out = nullptr;
    const th_lock lock(tcrypto_library_mutex);
    if (lock.error() != 0)
        return lock.error();
    if (name)
        *out = by_name(name);
    if (!*out && tag)
        *out = by_tag(tag);
    return *out ? TCRYPTO_OK : TCRYPTO_E_NO_ENTRY;
}

int tcrypto_bind_plugin_locked(tcrypto_plugin &plugin) {
    if (plugin.bound)
        return TCRYPTO_E_PLUGIN_LOADED;
    if (!plugin.supplied)
        return TCRYPTO_E_PLUGIN_LOAD;
    plugin.internal = &tcrypto_registry_table;
    plugin.provider = plugin.supplied;
    const int err = start(plugin);
    plugin.bound = err == TCRYPTO_OK;
    if (!plugin.bound)
        detach(plugin);
    return err;
}

int tcrypto_bind_plugin(tcrypto_plugin *plugin) {
    if (!plugin)
        return TCRYPTO_E_PARAMETERS;
    const th_lock lock(tcrypto_library_mutex);
    return lock.error() != 0 ? lock.error() : tcrypto_bind_plugin_locked(*plugin);
}

int tcrypto_bind_plugins(std::uint32_t flags) {
    const th_lock lock(tcrypto_library_mutex);
    if (lock.error() != 0)
        return lock.error();
    if ((flags & (BIND_FIRST | BIND_ALL)) == 0)
        return TCRYPTO_OK;
    int err = TCRYPTO_OK;
    for (tcrypto_plugin *plugin = first_plugin; plugin; plugin = plugin->next) {
        if (!plugin->bound)
            err = try_bind(*plugin);
        if ((flags & BIND_ALL) == 0)
            break;
    }
    return err;
}

int tcrypto_got_plugins() {
    const th_lock lock(tcrypto_library_mutex);
    return lock.error() == 0 && first_plugin ? 1 : 0;
}

void tcrypto_print_plugins() {
    const th_lock lock(tcrypto_library_mutex);
    if (lock.error() != 0)
        return;
    for (tcrypto_plugin *plugin = first_plugin; plugin; plugin = plugin->next)
        print_plugin(*plugin);
}

int tcrypto_supply_provider(tcrypto_plugin *plugin, const tcrypto_provider *provider) {
    const th_lock lock(tcrypto_library_mutex);
    if (lock.error() == 0)
        plugin->supplied = provider;
    return lock.error();
}

int tcrypto_remove_plugin(tcrypto_plugin *plugin) {
    const th_lock lock(tcrypto_library_mutex);
    if (lock.error() != 0)
        return lock.error();
    tcrypto_plugin **link = &first_plugin;
    while (*link && *link != plugin)
        link = &(*link)->next;
    if (!*link)
        return TCRYPTO_E_NO_ENTRY;
    *link = plugin->next;
    tcrypto_end_contexts(*plugin);
    unbind(*plugin);
    delete plugin;
    return TCRYPTO_OK;
}

int tcrypto_remove_plugins() {
    const th_lock lock(tcrypto_library_mutex);
    if (lock.error() != 0)
        return lock.error();
    // All before any provider goes: a context may hold one of another provider.
    for (tcrypto_plugin *plugin = first_plugin; plugin; plugin = plugin->next)
        tcrypto_end_contexts(*plugin);
    while (tcrypto_plugin *const plugin = first_plugin) {
        first_plugin = plugin->next;
        unbind(*plugin);
        delete plugin;
    }
    return TCRYPTO_OK;
}
