// Configurations by name for contexts that do not exist yet.  Used by the logger
// only; nothing here locks.
#pragma once

#include <array>
#include <string_view>

#include "th/log_config.h"

// Owns its entries, in lists by a hash of the name: a configuration text may
// name some ten thousand contexts.  Freed by th_log_destroy_templates only.
struct th_log_templates {
    std::array<th_slist *, 256> lists{};
};

// ENOMEM; `added` is unchanged then.
[[nodiscard]] int th_log_add_template(th_log_templates &templates, std::string_view name,
                                      const th_log_config &config, th_log_entry **added = nullptr);
// Null when there is none.
[[nodiscard]] th_log_entry *th_log_find_template(const th_log_templates &templates, std::string_view name);
// ENOMEM; `to` then holds a part.
[[nodiscard]] int th_log_copy_templates(const th_log_templates &from, th_log_templates &to);
void th_log_destroy_templates(th_log_templates &templates);

template <class Visit>
void th_log_for_each_template(const th_log_templates &templates, Visit visit) {
    for (const th_slist *list : templates.lists)
        th_log_for_each<th_log_entry>(list, visit);
}
