// The configuration of a context's destinations, and the text that describes
// one.  Used by the logger only; nothing here locks.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "th/log.h"
#include "th/slist.h"

inline constexpr std::size_t TH_LOG_NAME_SIZE = 32;  // with the terminating NUL
inline constexpr std::string_view TH_LOG_DEFAULT_NAME = "default";
inline constexpr std::string_view TH_LOG_LOCAL_NAME = "th";
inline constexpr std::string_view TH_LOG_ALL_NAME = "all";

// The order of the levels in a configuration.
enum th_log_destination_index : std::size_t {
    TH_LOG_XLOG_INDEX,
    TH_LOG_XLOG2_INDEX,
    TH_LOG_STDERR_INDEX,
    TH_LOG_STDOUT_INDEX,
    TH_LOG_DESTINATION_COUNT,
};

struct th_log_config {
    std::uint32_t mask = 0;  // enabled bits; where it is laid over another one, disabled bits as well
    std::array<std::int32_t, TH_LOG_DESTINATION_COUNT> levels{};
    std::uint32_t level_set = 0;    // enabled bits of the destinations with a level of their own
    std::uint32_t use_default = 0;  // enabled bits of the destinations that follow the default context
};

inline constexpr th_log_config TH_LOG_BUILTIN_CONFIG = {
    .mask = TH_LOG_STDERR,
    .levels = {TH_LOG_NOTICE, TH_LOG_NOTICE, TH_LOG_NOTICE, TH_LOG_NOTICE},
    .level_set = TH_LOG_STDOUT | TH_LOG_STDERR | TH_LOG_XLOG | TH_LOG_XLOG2,
};

inline constexpr th_log_config TH_LOG_CL_CONFIG = {
    .mask = TH_LOG_STDERR,
    .levels = {TH_LOG_NOTICE, TH_LOG_NOTICE, TH_LOG_ERROR, TH_LOG_NOTICE},
    .level_set = TH_LOG_STDOUT | TH_LOG_STDERR | TH_LOG_XLOG | TH_LOG_XLOG2,
};

inline constexpr th_log_config TH_LOG_FOLLOW_DEFAULT = {.use_default = TH_LOG_ALL_DESTINATIONS};

// A named configuration: an entry of a configuration text, or a template for
// contexts of that name.
struct th_log_entry {
    char name[TH_LOG_NAME_SIZE] = {};
    th_log_config config;
};

// Whether a context name may contain `c`.
[[nodiscard]] bool th_log_is_name_character(char c);

// Lays a configuration that says something about some destinations over a whole one.
void th_log_overlay(th_log_config &target, const th_log_config &source);
// Takes over the default context's values for the destinations that follow it.
void th_log_follow_default(th_log_config &config, const th_log_config &defaults);
// What a new context gets from its template: destinations without a level of
// their own start with the default context's.
[[nodiscard]] th_log_config th_log_instantiate(const th_log_config &pattern, const th_log_config &defaults);
// The level of one destination.  EINVAL when `destination` is not one of the four bits.
[[nodiscard]] int th_log_level_of(const th_log_config &config, std::uint32_t destination,
                                  std::int32_t &level);

// Appends the entries of a configuration text to a list of entries.  EINVAL,
// ENAMETOOLONG, ENOMEM; the list then holds the entries before the fault.
[[nodiscard]] int th_log_parse_config(std::string_view text, th_slist *entries);
// Writes a configuration's items, NUL-terminated and cut to the room.
void th_log_print_config(const th_log_config &config, std::span<char> out);

// Lists of entries, which own them.
[[nodiscard]] int th_log_add_entry(th_slist *entries, std::string_view name, const th_log_config &config,
                                   th_log_entry **added = nullptr);
void th_log_destroy_entries(th_slist *entries);

// Calls `visit` with each element of a list of T pointers.
template <class T, class Visit>
void th_log_for_each(const th_slist *list, Visit visit) {
    for (th_slist_node *node = th_slist_get_first(list); node; node = th_slist_get_next(node))
        visit(*static_cast<T *>(th_slist_get_data_vp(node)));
}
