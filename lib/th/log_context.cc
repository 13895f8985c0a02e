#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "th/error.h"
#include "th/log_state.h"

namespace {

// The functions below are called with the overall mutex held.

template <class Predicate>
th_log_context *find_context(Predicate matches) {
    th_log_context *found = nullptr;
    th_log_for_each<th_log_context>(th_log_shared.contexts, [&](th_log_context &context) {
        if (!found && matches(context))
            found = &context;
    });
    return found;
}

th_log_context *context_of(const th_log_context *const *variable) {
    return find_context([=](const th_log_context &context) { return context.variable == variable; });
}

int add_context(const char (&name)[TH_LOG_NAME_SIZE], th_log_context **variable) {
    auto *context = new (std::nothrow) th_log_context{.variable = variable};
    if (!context)
        return ENOMEM;
    std::memcpy(context->name, name, sizeof name);
    context->config = th_log_config_for(name);
    const std::uint64_t word = th_slist_word(context);
    if (const int error = th_slist_append(th_log_shared.contexts, &word); error != 0) {
        delete context;
        return error;
    }
    *variable = context;
    return 0;
}

// The configuration that the name stands for.  ENOENT.
int find_config(std::string_view name, th_log_config &config) {
    const th_log_state &state = th_log_shared;
    const th_log_context *context =
        name == TH_LOG_DEFAULT_NAME
            ? &state.fallback
            : find_context([=](const th_log_context &candidate) { return candidate.name == name; });
    if (!context && !th_log_find_template(state.templates, name))
        return ENOENT;
    config = context ? context->config : th_log_config_for(name);
    return 0;
}

int config_by_name(const char *name, th_log_config &config) {
    th_log_start();
    const th_lock overall(th_log_shared.mutex);
    return find_config(name, config);
}

int config_by_variable(const th_log_context *const *variable, th_log_config &config,
                       char (&name)[TH_LOG_NAME_SIZE]) {
    th_log_start();
    const th_lock overall(th_log_shared.mutex);
    const th_log_context *context = context_of(variable);
    if (!context)
        return ENOENT;
    config = context->config;
    std::memcpy(name, context->name, sizeof name);
    return 0;
}

void explain_clash(th_log_context *const *variable) {
    th_log_config config;
    char name[TH_LOG_NAME_SIZE];
    if (config_by_variable(variable, config, name) != 0)
        return;
    std::fputs("A context at that address exists with a different context name.  Define a unique "
               "TH_LOG_USER_CONTEXT_VAR in your static libraries' make file to avoid this.  Refer to TH "
               "documentation for more details.\n",
               stderr);
    std::fprintf(stderr, "context name was: %s\n", name);
}

[[noreturn]] void abort_registration(const char *name, th_log_context *const *variable, int error) {
    char which[TH_LOG_NAME_SIZE + 16] = "";
    if (name)
        std::snprintf(which, sizeof which, " for '%.31s'", name);
    std::fprintf(stderr, "th log context creation failed%s, aborting (%d, %s)\n", which, error,
                 th_strerror(error));
    if (error == EEXIST)
        explain_clash(variable);
    std::abort();
}

}  // namespace

int th_log_context_normalize_name(char *name) {
    if (!name || !*name)
        return th_result(EINVAL);
    for (const std::string_view reserved : {TH_LOG_DEFAULT_NAME, TH_LOG_LOCAL_NAME, TH_LOG_ALL_NAME}) {
        if (name == reserved)
            *name = '_';
    }
    for (; *name; name++) {
        if (!th_log_is_name_character(*name))
            *name = '_';
    }
    return 0;
}

int th_log_context_create(const char *name, th_log_context **variable) {
    if (!name || !variable)
        return th_result(EINVAL);
    char wanted[TH_LOG_NAME_SIZE] = {};
    std::string_view(name).copy(wanted, sizeof wanted - 1);
    if (const int error = th_log_context_normalize_name(wanted); error != 0)
        return error;
    th_log_start();
    const th_lock overall(th_log_shared.mutex);
    if (const th_log_context *present = context_of(variable))
        return th_result(std::strcmp(present->name, wanted) == 0 ? 0 : EEXIST);
    return th_result(add_context(wanted, variable));
}

int th_log_context_destroy(th_log_context **variable) {
    if (!variable)
        return th_result(EINVAL);
    th_log_start();
    const th_lock overall(th_log_shared.mutex);
    th_log_context *context = context_of(variable);
    if (!context)
        return 0;
    {
        // Nobody waits for this mutex without the overall one.
        const th_lock last_message(context->mutex);
        *variable = nullptr;
    }
    const std::uint64_t word = th_slist_word(context);
    th_slist_remove_data(th_log_shared.contexts, &word, th_slist_compare_vp_data, nullptr);
    pthread_mutex_destroy(&context->mutex.handle);
    delete context;
    return 0;
}

int th_log_get_verbosity(th_log_context *const *variable, std::uint32_t destination, std::int32_t *level) {
    if (!variable || !level)
        return th_result(EINVAL);
    th_log_config config;
    char name[TH_LOG_NAME_SIZE];
    if (const int error = config_by_variable(variable, config, name); error != 0)
        return th_result(error);
    return th_result(th_log_level_of(config, destination, *level));
}

int th_log_get_verbosity_by_name(const char *name, std::uint32_t destination, std::int32_t *level) {
    if (!name || !level)
        return th_result(EINVAL);
    th_log_config config;
    if (const int error = config_by_name(name, config); error != 0)
        return th_result(error);
    return th_result(th_log_level_of(config, destination, *level));
}

int th_log_get_destinations_by_name(const char *name, std::uint32_t *destinations) {
    if (!name || !destinations)
        return th_result(EINVAL);
    th_log_config config;
    if (const int error = config_by_name(name, config); error != 0)
        return th_result(error);
    *destinations = config.mask & TH_LOG_ALL_DESTINATIONS;
    return 0;
}

int th_log_dump_context_config(const char *title, th_log_context *const *variable) {
    if (!title || !variable)
        return th_result(EINVAL);
    th_log_config config;
    char name[TH_LOG_NAME_SIZE];
    if (const int error = config_by_variable(variable, config, name); error != 0)
        return th_result(error);
    char items[128];
    th_log_print_config(config, items);
    char text[TH_LOG_NAME_SIZE + sizeof items];
    std::snprintf(text, sizeof text, "%s:%s", name, items);
    std::fprintf(stderr, "%s: %s\n", title, text);
    return 0;
}

th_log_registration::th_log_registration(const char *name, th_log_context **variable) : variable_(variable) {
    if (const int error = th_log_context_create(name, variable); error != 0)
        abort_registration(name, variable, error);
}

th_log_registration::~th_log_registration() {
    th_log_context_destroy(variable_);
}
