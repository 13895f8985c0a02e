#include "th/log_config.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <new>
#include <optional>

namespace {

struct destination_row {
    std::string_view keyword;
    std::uint32_t bit;
};

// In the order of the levels in a configuration.
constexpr destination_row DESTINATIONS[TH_LOG_DESTINATION_COUNT] = {
    {"xlog", TH_LOG_XLOG},
    {"xlog2", TH_LOG_XLOG2},
    {"stderr", TH_LOG_STDERR},
    {"stdout", TH_LOG_STDOUT},
};

struct level_row {
    const char *keyword;
    std::int32_t level;
};

constexpr level_row LEVELS[] = {
    {"none", TH_LOG_NONE},   {"shutdown", TH_LOG_SHUTDOWN}, {"critical", TH_LOG_CRITICAL},
    {"error", TH_LOG_ERROR}, {"warning", TH_LOG_WARNING},   {"notice", TH_LOG_NOTICE},
    {"info", TH_LOG_INFO},   {"debug1", TH_LOG_DEBUG1},     {"debug2", TH_LOG_DEBUG2},
    {"all", TH_LOG_ALL},     {"default", TH_LOG_DEFAULT},
};

// Calls `visit` with the bit and the level index of every destination in `bits`.
template <class Visit>
void for_each_destination(std::uint32_t bits, Visit visit) {
    for (std::size_t i = 0; i < TH_LOG_DESTINATION_COUNT; i++) {
        if ((bits & DESTINATIONS[i].bit) != 0)
            visit(DESTINATIONS[i].bit, i);
    }
}

std::uint32_t find_destination(std::string_view keyword) {
    if (keyword == "all")
        return TH_LOG_ALL_DESTINATIONS;
    const auto *row = std::ranges::find(DESTINATIONS, keyword, &destination_row::keyword);
    return row == std::end(DESTINATIONS) ? 0 : row->bit;
}

std::optional<std::int32_t> find_level(std::string_view keyword) {
    const auto *row = std::ranges::find(LEVELS, keyword, &level_row::keyword);
    return row == std::end(LEVELS) ? std::nullopt : std::optional(row->level);
}

const char *level_keyword(std::int32_t level) {
    const auto *row = std::ranges::find(LEVELS, level, &level_row::level);
    return row == std::end(LEVELS) ? "<unknown>" : row->keyword;
}

// Cuts the first piece off `rest`, which is empty without value after the last one.
std::string_view next_piece(std::optional<std::string_view> &rest, char separator) {
    const std::string_view text = *rest;
    const std::size_t end = text.find(separator);
    if (end == text.npos)
        rest.reset();
    else
        rest = text.substr(end + 1);
    return text.substr(0, end);
}

void follow_default_level(th_log_config &config, std::uint32_t bits) {
    config.use_default |= bits;
    config.level_set &= ~bits;
    config.mask &= ~(bits | bits >> TH_LOG_DISABLE_SHIFT);
}

void set_level(th_log_config &config, std::uint32_t bits, std::int32_t level) {
    for_each_destination(bits, [&](std::uint32_t, std::size_t index) { config.levels[index] = level; });
    config.level_set |= bits;
}

void set_enabled(th_log_config &config, std::uint32_t bits, bool enabled) {
    const std::uint32_t disabled_bits = bits >> TH_LOG_DISABLE_SHIFT;
    config.mask &= ~(bits | disabled_bits);
    config.mask |= enabled ? bits : disabled_bits;
    config.use_default &= ~bits;
}

// One [~]DESTINATION[=LEVEL], or "default".
int parse_item(std::string_view item, th_log_config &config) {
    if (item == TH_LOG_DEFAULT_NAME) {
        config = TH_LOG_FOLLOW_DEFAULT;
        return 0;
    }
    const bool enabled = !item.starts_with('~');
    std::optional<std::string_view> rest = item.substr(enabled ? 0 : 1);
    const std::uint32_t bits = find_destination(next_piece(rest, '='));
    const std::optional<std::int32_t> level = rest ? find_level(*rest) : std::nullopt;
    if (bits == 0 || (rest && !level))
        return EINVAL;
    if (level == TH_LOG_DEFAULT) {
        follow_default_level(config, bits);
        return enabled ? 0 : EINVAL;
    }
    if (level)
        set_level(config, bits, *level);
    set_enabled(config, bits, enabled);
    return 0;
}

int check_name(std::string_view name) {
    if (name.empty() || !std::ranges::all_of(name, th_log_is_name_character))
        return EINVAL;
    return name.size() < TH_LOG_NAME_SIZE ? 0 : ENAMETOOLONG;
}

int parse_entry(std::string_view text, th_slist *entries) {
    std::optional<std::string_view> rest = text;
    const std::string_view name = next_piece(rest, ':');
    if (const int error = check_name(name); error != 0)
        return error;
    th_log_config config;
    while (rest) {
        if (const int error = parse_item(next_piece(rest, ','), config); error != 0)
            return error;
    }
    return th_log_add_entry(entries, name, config);
}

void delete_entry(th_slist_node *node) {
    delete static_cast<th_log_entry *>(th_slist_get_data_vp(node));
}

}  // namespace

bool th_log_is_name_character(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("#()+-.<>[]_").find(c) != std::string_view::npos;
}

void th_log_overlay(th_log_config &target, const th_log_config &source) {
    const std::uint32_t enabled = source.mask & TH_LOG_ALL_DESTINATIONS;
    const std::uint32_t disabled = source.mask << TH_LOG_DISABLE_SHIFT;
    target.mask = (target.mask | enabled) & ~disabled;
    target.use_default = (target.use_default & ~(enabled | disabled)) | source.use_default;
    for_each_destination(source.level_set, [&](std::uint32_t, std::size_t index) {
        target.levels[index] = source.levels[index];
    });
    target.level_set = (target.level_set & ~source.use_default) | source.level_set;
}

void th_log_follow_default(th_log_config &config, const th_log_config &defaults) {
    config.mask = (config.mask & ~config.use_default) | (defaults.mask & config.use_default);
    for_each_destination(config.use_default, [&](std::uint32_t, std::size_t index) {
        config.levels[index] = defaults.levels[index];
    });
}

th_log_config th_log_instantiate(const th_log_config &pattern, const th_log_config &defaults) {
    th_log_config config = pattern;
    for_each_destination(~pattern.level_set, [&](std::uint32_t, std::size_t index) {
        config.levels[index] = defaults.levels[index];
    });
    th_log_follow_default(config, defaults);
    return config;
}

int th_log_level_of(const th_log_config &config, std::uint32_t destination, std::int32_t &level) {
    const auto *row = std::ranges::find(DESTINATIONS, destination, &destination_row::bit);
    if (row == std::end(DESTINATIONS))
        return EINVAL;
    level = config.levels[static_cast<std::size_t>(row - std::begin(DESTINATIONS))];
    return 0;
}

int th_log_parse_config(std::string_view text, th_slist *entries) {
    std::optional<std::string_view> rest = text;
    while (rest) {
        if (const int error = parse_entry(next_piece(rest, ';'), entries); error != 0)
            return error;
    }
    return 0;
}

void th_log_print_config(const th_log_config &config, std::span<char> out) {
    std::size_t length = 0;
    const char *separator = "";
    for_each_destination(TH_LOG_ALL_DESTINATIONS, [&](std::uint32_t bit, std::size_t index) {
        const bool follows = (config.use_default & bit) != 0;
        const bool enabled = follows || (config.mask & bit) != 0;
        const int written = std::snprintf(out.data() + length, out.size() - length, "%s%s%s=%s", separator,
                                          enabled ? "" : "~", DESTINATIONS[index].keyword.data(),
                                          level_keyword(follows ? TH_LOG_DEFAULT : config.levels[index]));
        length = std::min(length + static_cast<std::size_t>(written), out.size() - 1);
        separator = ",";
    });
}

int th_log_add_entry(th_slist *entries, std::string_view name, const th_log_config &config,
                     th_log_entry **added) {
    auto *entry = new (std::nothrow) th_log_entry{.name = {}, .config = config};
    if (!entry)
        return ENOMEM;
    name.copy(entry->name, TH_LOG_NAME_SIZE - 1);
    const std::uint64_t word = th_slist_word(entry);
    if (const int error = th_slist_append(entries, &word); error != 0) {
        delete entry;
        return error;
    }
    if (added)
        *added = entry;
    return 0;
}

void th_log_destroy_entries(th_slist *entries) {
    th_slist_destroy(&entries, delete_entry);
}
