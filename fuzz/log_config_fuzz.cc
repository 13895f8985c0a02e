// Configuration texts of the logger: an accepted one survives being printed and read
// again, a refused one changes nothing.  Through the environment as well.
#include <cerrno>
#include <cstdlib>
#include <string>

#include "support/require.h"
#include "th/log.h"
#include "th/log_state.h"

TH_LOG_CONTEXT_DEFINE(fuzz_log, "fuzz");

static th_log_config builtin_with(const std::string &text) {
    th_slist *entries = nullptr;
    require(th_slist_create(&entries) == 0 && th_log_parse_config(text, entries) == 0);
    th_log_config config = TH_LOG_BUILTIN_CONFIG;
    th_log_for_each<th_log_entry>(entries,
                                  [&](th_log_entry &entry) { th_log_overlay(config, entry.config); });
    th_log_destroy_entries(entries);
    return config;
}

static std::string printed(const th_log_config &config) {
    char text[128];
    th_log_print_config(config, text);
    require(std::string(text).size() < sizeof text - 1);
    return text;
}

// The same through templates and contexts; then everything is as before the run.
static void apply(const std::string &text, bool valid) {
    th_log_state &state = th_log_shared;
    state.locked = false;
    const std::string before = printed(fuzz_log->config) + printed(state.fallback.config);
    const int err = th_log_update_config(text.c_str());
    require((err == 0) == valid && (valid || err == errno));
    require(valid || printed(fuzz_log->config) + printed(state.fallback.config) == before);
    std::int32_t level = 0;
    require(th_log_get_verbosity_by_name("all", TH_LOG_STDERR, &level) == 0);
    setenv("TH_LOG_CONFIG_CTX_CL", text.c_str(), 1);
    require((th_log_set_cl_mode() == 0) == valid);
    unsetenv("TH_LOG_CONFIG_CTX_CL");
    th_log_destroy_templates(state.templates);
    require(th_log_add_template(state.templates, TH_LOG_ALL_NAME, TH_LOG_FOLLOW_DEFAULT) == 0);
    require(th_log_set_cl_mode() == 0);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string text = std::string(reinterpret_cast<const char *>(data), size).c_str();
    th_slist *entries = nullptr;
    require(th_slist_create(&entries) == 0);
    const int err = th_log_parse_config(text, entries);
    require(err == 0 || err == EINVAL || err == ENAMETOOLONG);
    th_log_for_each<th_log_entry>(entries, [&](th_log_entry &entry) {
        th_log_config config = TH_LOG_BUILTIN_CONFIG;
        th_log_overlay(config, entry.config);
        const std::string line = printed(config);
        require(printed(builtin_with(std::string(entry.name) + ":" + line)) == line);
    });
    th_log_destroy_entries(entries);
    apply(text, err == 0);
    return 0;
}
