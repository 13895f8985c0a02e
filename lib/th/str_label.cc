#include "th/str_label.h"

#include <cerrno>
#include <cstring>
#include <grp.h>
#include <memory>
#include <new>
#include <pwd.h>
#include <string_view>
#include <strings.h>
#include <unistd.h>

namespace {

constexpr std::size_t DEFAULT_BUFFER = 4096;
constexpr std::size_t LARGEST_BUFFER = 1 << 20;

// Calls `lookup` (buffer, size; 0 or an error number) with a buffer of the size
// that the system suggests, and with larger ones while it answers ERANGE: the
// suggestion is too small for groups with many members.
template <class Lookup>
int look_up(int suggestion_name, Lookup lookup) {
    const long suggestion = sysconf(suggestion_name);
    std::size_t size = suggestion > 0 ? static_cast<std::size_t>(suggestion) : DEFAULT_BUFFER;
    for (;; size *= 2) {
        const std::unique_ptr<char[]> buffer(new (std::nothrow) char[size]);
        if (!buffer)
            return ENOMEM;
        const int error = lookup(buffer.get(), size);
        if (error != ERANGE || size > LARGEST_BUFFER)
            return error;
    }
}

void take_whole_text(th_str_request &request, std::uint64_t value) {
    request.value = value;
    request.cursor += std::strlen(request.cursor);
}

struct signal_name {
    std::string_view name;
    int number;
};

// The first name that the text begins with counts, so IOT stands before IO.
constexpr signal_name SIGNALS[] = {
    {"HUP", 1},   {"INT", 2},     {"QUIT", 3},  {"ILL", 4},   {"TRAP", 5},  {"IOT", 6},   {"ABRT", 6},
    {"FPE", 8},   {"KILL", 9},    {"BUS", 7},   {"SEGV", 11}, {"SYS", 31},  {"PIPE", 13}, {"ALRM", 14},
    {"TERM", 15}, {"USR1", 10},   {"USR2", 12}, {"CHLD", 17}, {"CLD", 17},  {"PWR", 30},  {"WINCH", 28},
    {"URG", 23},  {"POLL", 29},   {"IO", 29},   {"STOP", 19}, {"TSTP", 20}, {"CONT", 18}, {"TTIN", 21},
    {"TTOU", 22}, {"VTALRM", 26}, {"PROF", 27}, {"XCPU", 24}, {"XFSZ", 25},
};

bool starts_with_any_case(const char *text, std::string_view prefix) {
    return strncasecmp(text, prefix.data(), prefix.size()) == 0;
}

}  // namespace

int th_str_user_label(th_str_request &request) {
    return look_up(_SC_GETPW_R_SIZE_MAX, [&](char *buffer, std::size_t size) {
        passwd entry = {};
        passwd *found = nullptr;
        const int error = getpwnam_r(request.cursor, &entry, buffer, size, &found);
        if (found)
            take_whole_text(request, found->pw_uid);
        return found || error ? error : ENOENT;
    });
}

int th_str_group_label(th_str_request &request) {
    return look_up(_SC_GETGR_R_SIZE_MAX, [&](char *buffer, std::size_t size) {
        group entry = {};
        group *found = nullptr;
        const int error = getgrnam_r(request.cursor, &entry, buffer, size, &found);
        if (found)
            take_whole_text(request, found->gr_gid);
        return found || error ? error : ENOENT;
    });
}

int parse_signo_label(th_str_request &request) {
    constexpr std::string_view prefix = "SIG";
    const char *text = request.cursor;
    if (starts_with_any_case(text, prefix))
        text += prefix.size();
    for (const signal_name &signal : SIGNALS) {
        if (!starts_with_any_case(text, signal.name))
            continue;
        request.value = static_cast<std::uint64_t>(signal.number);
        request.cursor = text + signal.name.size();
        return 0;
    }
    return ENOENT;
}
