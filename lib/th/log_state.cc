#include "th/log_state.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "th/error.h"
#include "th/log_format.h"

constinit th_log_state th_log_shared;

namespace {

constexpr std::size_t PROGRAM_NAME_SIZE = 64;  // with the terminating NUL
constexpr char CONFIG_VARIABLE[] = "TH_LOG_CONFIG_CTX";
constexpr char CL_CONFIG_VARIABLE[] = "TH_LOG_CONFIG_CTX_CL";
constexpr char LOCKED_VARIABLE[] = "TH_LOG_CONFIG_LOCKED";
constexpr char OUT_OF_MEMORY[] = "OOM initializing logging config";

pthread_once_t start_once = PTHREAD_ONCE_INIT;
th_log_context *local_log = &th_log_shared.local;

[[noreturn]] void abort_for(const char *what, int error) {
    std::fprintf(stderr, "%s, aborting (%d, %s)\n", what, error, th_strerror(error));
    std::abort();
}

// The entries of a configuration text, for the length of a scope.
class entry_list {
public:
    entry_list() = default;
    ~entry_list() { th_log_destroy_entries(list_); }
    entry_list(const entry_list &) = delete;
    entry_list &operator=(const entry_list &) = delete;

    [[nodiscard]] int create() { return th_slist_create(&list_); }
    [[nodiscard]] th_slist *get() const { return list_; }

private:
    th_slist *list_ = nullptr;
};

// A working copy of the templates.
class template_copy {
public:
    template_copy() = default;
    ~template_copy() { th_log_destroy_templates(copy); }
    template_copy(const template_copy &) = delete;
    template_copy &operator=(const template_copy &) = delete;

    th_log_templates copy;
};

int overlay_template(th_log_templates &templates, const th_log_entry &entry) {
    th_log_entry *found = th_log_find_template(templates, entry.name);
    if (!found) {
        if (const int error = th_log_add_template(templates, entry.name, TH_LOG_FOLLOW_DEFAULT, &found);
            error != 0)
            return error;
    }
    th_log_overlay(found->config, entry.config);
    return 0;
}

// Lays one entry over the default configuration or the templates that it names.
int overlay_future(th_log_templates &templates, th_log_config &defaults, const th_log_entry &entry) {
    const bool all = entry.name == TH_LOG_ALL_NAME;
    if (!all && entry.name != TH_LOG_DEFAULT_NAME)
        return overlay_template(templates, entry);
    th_log_overlay(defaults, entry.config);
    if (all) {
        th_log_for_each_template(
            templates, [&](th_log_entry &pattern) { th_log_overlay(pattern.config, entry.config); });
    }
    return 0;
}

// Lays one entry over the contexts alive that it names.
void overlay_present(const th_log_entry &entry) {
    if (entry.name == TH_LOG_DEFAULT_NAME)
        return;
    const bool all = entry.name == TH_LOG_ALL_NAME;
    th_log_for_each<th_log_context>(th_log_shared.contexts, [&](th_log_context &context) {
        if (!all && std::string_view(entry.name) != context.name)
            return;
        const th_lock lock(context.mutex);
        th_log_overlay(context.config, entry.config);
    });
}

void set_config(th_log_context &context, const th_log_config &config) {
    const th_lock lock(context.mutex);
    context.config = config;
}

// Applies parsed entries, all or none.  The overall mutex is held.
int apply_entries(const th_slist *entries) {
    th_log_state &state = th_log_shared;
    template_copy templates;
    int error = th_log_copy_templates(state.templates, templates.copy);
    th_log_config defaults = state.fallback.config;
    th_log_for_each<th_log_entry>(entries, [&](const th_log_entry &entry) {
        if (error == 0)
            error = overlay_future(templates.copy, defaults, entry);
    });
    if (error != 0)
        return error;
    std::swap(templates.copy, state.templates);
    set_config(state.fallback, defaults);
    th_log_for_each<th_log_entry>(entries, overlay_present);
    th_log_for_each<th_log_context>(state.contexts, [&](th_log_context &context) {
        const th_lock lock(context.mutex);
        th_log_follow_default(context.config, defaults);
    });
    return 0;
}

// The overall mutex is held.
int apply_text(const char *text) {
    entry_list entries;
    if (const int error = entries.create(); error != 0)
        return error;
    if (const int error = th_log_parse_config(text, entries.get()); error != 0)
        return error;
    return apply_entries(entries.get());
}

// Starts again: every template and context follows `defaults` everywhere.
void reset_all(const th_log_config &defaults) {
    th_log_state &state = th_log_shared;
    const th_lock lock(state.mutex);
    set_config(state.fallback, defaults);
    th_log_for_each_template(state.templates,
                             [](th_log_entry &pattern) { pattern.config = TH_LOG_FOLLOW_DEFAULT; });
    const th_log_config config = th_log_instantiate(TH_LOG_FOLLOW_DEFAULT, defaults);
    th_log_for_each<th_log_context>(state.contexts,
                                    [&](th_log_context &context) { set_config(context, config); });
}

[[gnu::format(printf, 2, 3)]] void log_locally(const th_log_call_site &site, const char *format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    th_log_write(site, {}, format, arguments);
    va_end(arguments);
}

void report_variable(const char *name, const char *value, int error) {
    static constinit const th_log_call_site site = {
        .line = __LINE__, .file = TH_LOG_FILE_NAME, .flags = TH_LOG_ERROR, .context = &local_log};
    log_locally(site, "%s environment variable error ('%s') (%d, %s)\n", name, value, error,
                th_strerror(error));
}

// One variable's text, if it is set.
int apply_variable(const char *name, bool &applied) {
    const char *value = std::getenv(name);
    if (!value)
        return 0;
    int error = 0;
    {
        const th_lock lock(th_log_shared.mutex);
        error = apply_text(value);
    }
    applied = error == 0;
    return error;
}

// The variable's name with the program's name added, in `out`; false when the
// program has none.
bool program_variable(const char *name, std::span<char> out) {
    char program[PROGRAM_NAME_SIZE];
    std::snprintf(program, sizeof program, "%s", program_invocation_short_name);
    if (th_log_context_normalize_name(program) != 0)
        return false;
    std::snprintf(out.data(), out.size(), "%s__%s", name, program);
    return true;
}

// Applies a variable and its program-specific form on top of `defaults`; one
// that is refused is logged and brings the defaults back.  `applied`: whether a
// variable is in force.  The first error.
int apply_environment(const char *variable, const th_log_config &defaults, bool &applied) {
    char specific[sizeof CL_CONFIG_VARIABLE + 2 + PROGRAM_NAME_SIZE];
    const char *names[] = {variable, program_variable(variable, specific) ? specific : nullptr};
    int first_error = 0;
    for (const char *name : names) {
        const int error = name ? apply_variable(name, applied) : 0;
        if (error == 0)
            continue;
        reset_all(defaults);
        report_variable(name, std::getenv(name), error);
        th_sticky_error(&first_error, error);
    }
    return first_error;
}

bool wants_lock() {
    const char *value = std::getenv(LOCKED_VARIABLE);
    return !value || std::strcmp(value, "0") != 0;
}

int create_lists() {
    th_log_state &state = th_log_shared;
    const std::uint64_t local = th_slist_word(&state.local);
    if (const int error = th_slist_create(&state.contexts); error != 0)
        return error;
    if (const int error = th_slist_append(state.contexts, &local); error != 0)
        return error;
    return th_log_add_template(state.templates, TH_LOG_ALL_NAME, TH_LOG_FOLLOW_DEFAULT);
}

void start() {
    if (const int error = create_lists(); error != 0)
        abort_for(OUT_OF_MEMORY, error);
    reset_all(TH_LOG_BUILTIN_CONFIG);
    bool applied = false;
    if (apply_environment(CONFIG_VARIABLE, TH_LOG_BUILTIN_CONFIG, applied) == ENOMEM)
        abort_for(OUT_OF_MEMORY, ENOMEM);
    const th_lock lock(th_log_shared.mutex);
    th_log_shared.locked = applied && wants_lock();
}

}  // namespace

void th_log_abort_lock(const th_mutex &, bool taking, int error) {
    abort_for(taking ? "Failed to lock mutex" : "Failed to unlock mutex", error);
}

void th_log_start() {
    pthread_once(&start_once, start);
}

th_log_config th_log_config_for(std::string_view name) {
    const th_log_state &state = th_log_shared;
    const th_log_entry *pattern = th_log_find_template(state.templates, name);
    if (!pattern)
        pattern = th_log_find_template(state.templates, TH_LOG_ALL_NAME);
    return th_log_instantiate(pattern->config, state.fallback.config);
}

int th_log_update_config(const char *text) {
    if (!text)
        return th_result(EINVAL);
    th_log_start();
    const th_lock lock(th_log_shared.mutex);
    const int error = th_log_shared.locked ? EPERM : apply_text(text);
    return th_result(error);
}

int th_log_set_cl_mode() {
    th_log_start();
    reset_all(TH_LOG_CL_CONFIG);
    bool applied = false;
    const int error = apply_environment(CL_CONFIG_VARIABLE, TH_LOG_CL_CONFIG, applied);
    return th_result(error);
}
