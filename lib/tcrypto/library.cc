#include "tcrypto/library.h"

#include <atomic>
#include <memory>

#include "tcrypto/lock.h"
#include "tcrypto/plugin.h"

namespace {

// Written under the init mutex.
constinit std::atomic<std::uint32_t> reference_count = 0;

// Where providers would read their settings from; nothing sets it yet.  Under the init
// mutex.
constinit std::unique_ptr<char[]> configuration_path;

int supply_and_bind(std::uint32_t flags, tcrypto_plugin *plugin, const tcrypto_provider &provider) {
    if (const int err = tcrypto_supply_provider(plugin, &provider); err != TCRYPTO_OK)
        return err;
    return tcrypto_bind_plugins(flags);
}

int add_and_bind(std::uint32_t flags, const char *name, const tcrypto_provider &provider) {
    tcrypto_plugin *plugin = nullptr;
    if (const int err = tcrypto_add_plugin(name, "*", &plugin); err != TCRYPTO_OK)
        return err;
    const int err = supply_and_bind(flags, plugin, provider);
    if (err != TCRYPTO_OK)
        tcrypto_remove_plugin(plugin);  // or the next attempt would find it and fail
    return err;
}

}  // namespace

bool tcrypto_is_initialised() {
    return reference_count != 0;
}

int tcrypto_start_library(std::uint32_t flags, const char *name, const tcrypto_provider &provider) {
    const th_lock lock(tcrypto_init_mutex);
    if (lock.error() != 0)
        return TCRYPTO_E_INIT;
    if (reference_count == 0) {
        if (const int err = add_and_bind(flags, name, provider); err != TCRYPTO_OK)
            return err;
    }
    ++reference_count;
    return TCRYPTO_OK;
}

int tcrypto_uninit() {
    const th_lock lock(tcrypto_init_mutex);
    if (lock.error() != 0)
        return lock.error();
    if (reference_count != 0)
        --reference_count;
    if (reference_count != 0)
        return TCRYPTO_OK;
    configuration_path.reset();
    return tcrypto_remove_plugins();
}
