// Configuration texts of the logger: an accepted one survives being printed and read
// again, a refused one changes nothing.
#include <cerrno>
#include <string>

#include "support/require.h"
#include "th/log.h"
#include "th/log_state.h"

TH_LOG_CONTEXT_DEFINE(fuzz_log, "fuzz");

static std::string printed(const th_log_config &config) {
    char text[128];
    th_log_print_config(config, text);
    require(std::string(text).size() < sizeof text - 1);
    return text;
}

// The error of a text; each of its entries as it is printed.
static int parse(const std::string &text, std::string &lines) {
    th_slist *entries = nullptr;
    require(th_slist_create(&entries) == 0);
    const int err = th_log_parse_config(text.c_str(), entries);
    th_log_for_each<th_log_entry>(entries, [&](th_log_entry &entry) {
        th_log_config config = TH_LOG_BUILTIN_CONFIG;
        th_log_overlay(config, entry.config);
        lines += (lines.empty() ? "" : ";") + std::string(entry.name) + ":" + printed(config);
    });
    th_log_destroy_entries(entries);
    return err;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string text = std::string(reinterpret_cast<const char *>(data), size).c_str();
    std::string lines, again;
    const int err = parse(text, lines);
    require(err == 0 || err == EINVAL || err == ENAMETOOLONG);
    require(err != 0 || (parse(lines, again) == 0 && again == lines));
    // The same through templates and contexts; then everything is as before the run.
    th_log_state &state = th_log_shared;
    state.locked = false;
    const std::string before = printed(fuzz_log->config) + printed(state.fallback.config);
    require((th_log_update_config(text.c_str()) == 0) == (err == 0));
    require(err == 0 || printed(fuzz_log->config) + printed(state.fallback.config) == before);
    th_log_destroy_templates(state.templates);
    require(th_log_add_template(state.templates, TH_LOG_ALL_NAME, TH_LOG_FOLLOW_DEFAULT) == 0);
    require(th_log_set_cl_mode() == 0);
    return 0;
}
