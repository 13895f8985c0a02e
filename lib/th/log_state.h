// What the logger's source files share: the contexts alive, the configuration,
// and their locks.
#pragma once

#include <cstddef>
#include <type_traits>

#include "th/lock.h"
#include "th/log_template.h"

// Prints a message and aborts.
void th_log_abort_lock(const th_mutex &mutex, bool taking, int error);

inline constexpr th_mutex TH_LOG_MUTEX = {.failed = th_log_abort_lock};

struct th_log_context {
    char name[TH_LOG_NAME_SIZE] = {};
    th_log_context **variable = nullptr;  // where its module refers to it
    // Held while one of its messages is written.
    th_mutex mutex = TH_LOG_MUTEX;
    // Changed under the overall mutex and `mutex`, so either of them allows reading.
    th_log_config config = TH_LOG_BUILTIN_CONFIG;
};

// Constant-initialised and never destroyed: usable before main and after exit.
struct th_log_state {
    th_mutex mutex = TH_LOG_MUTEX;  // the overall mutex: guards what follows
    th_slist *contexts = nullptr;   // th_log_context *, with the local one
    th_log_templates templates;     // with the one named "all"
    bool locked = false;            // the environment's configuration stays

    // The logger's own messages.
    th_log_context local = {.name = "th"};
    // Messages without a registered context; its configuration is the default one.
    th_log_context fallback = {.name = "default"};

    th_mutex long_mutex = TH_LOG_MUTEX;  // guards the buffer for long messages
    char *long_text = nullptr;
    std::size_t long_size = 0;
};

static_assert(std::is_trivially_destructible_v<th_log_state>);

extern th_log_state th_log_shared;

// Sets up the lists and reads the environment, once per process.  Every entry
// point calls it first; what runs inside of it must not.
void th_log_start();

// The call site's message without th_log_start.
[[gnu::format(printf, 3, 0)]] int th_log_write(const th_log_call_site &site,
                                               std::span<const std::uint8_t> data, const char *format,
                                               std::va_list arguments);

// What a new context of this name gets.  The overall mutex is held.
[[nodiscard]] th_log_config th_log_config_for(std::string_view name);
