#include "th/log_template.h"

#include <functional>

namespace {

std::size_t list_index(std::string_view name) {
    return std::hash<std::string_view>{}(name) % std::tuple_size_v<decltype(th_log_templates::lists)>;
}

}  // namespace

int th_log_add_template(th_log_templates &templates, std::string_view name, const th_log_config &config,
                        th_log_entry **added) {
    th_slist *&list = templates.lists[list_index(name)];
    if (!list) {
        if (const int error = th_slist_create(&list); error != 0)
            return error;
    }
    return th_log_add_entry(list, name, config, added);
}

th_log_entry *th_log_find_template(const th_log_templates &templates, std::string_view name) {
    th_log_entry *found = nullptr;
    th_log_for_each<th_log_entry>(templates.lists[list_index(name)], [&](th_log_entry &entry) {
        if (!found && entry.name == name)
            found = &entry;
    });
    return found;
}

int th_log_copy_templates(const th_log_templates &from, th_log_templates &to) {
    int error = 0;
    th_log_for_each_template(from, [&](const th_log_entry &entry) {
        if (error == 0)
            error = th_log_add_template(to, entry.name, entry.config);
    });
    return error;
}

void th_log_destroy_templates(th_log_templates &templates) {
    for (th_slist *&list : templates.lists) {
        th_log_destroy_entries(list);
        list = nullptr;
    }
}
