#include "base/progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/log.h"

namespace {

using clock = std::chrono::steady_clock;

constexpr auto FIRST_AFTER = std::chrono::seconds(1);
constexpr auto INTERVAL = std::chrono::milliseconds(200);
constexpr std::size_t LINE_CAPACITY = 64;
constexpr char WIPE[] = "\r\033[K";  // to the first column, clear to the end of the line
constexpr std::size_t WIPE_LENGTH = sizeof WIPE - 1;

struct progress_state {
    bool watched = false;
    volatile bool shown = false;  // read by signal handlers
    std::uint64_t size = 0;
    unsigned passes = 1;
    std::uint64_t done = 0;
    clock::time_point start;
    clock::time_point next;  // the earliest moment of the next line
};
constinit progress_state state;

bool somebody_watches() {
    const char *terminal = std::getenv("TERM");
    return verbose == 0 && terminal && std::strcmp(terminal, "dumb") != 0 && ::isatty(STDERR_FILENO) == 1;
}

// A line as long as the terminal is wide would wrap, and could not be wiped.
std::size_t line_capacity() {
    winsize window = {};
    if (::ioctl(STDERR_FILENO, TIOCGWINSZ, &window) != 0 || window.ws_col == 0)
        return LINE_CAPACITY;
    return std::min<std::size_t>(window.ws_col, LINE_CAPACITY);
}

// A failure to write to the terminal is ignored.
void put(const char *text, std::size_t length) {
    const int saved_errno = errno;
    if (::write(STDERR_FILENO, text, length) < 0)
        errno = saved_errno;
}

void show(clock::time_point now) {
    char line[WIPE_LENGTH + LINE_CAPACITY];
    std::memcpy(line, WIPE, WIPE_LENGTH);
    const mktfs_progress_figures figures = {.size = state.size,
                                            .passes = state.passes,
                                            .done = state.done,
                                            .seconds =
                                                std::chrono::duration<double>(now - state.start).count()};
    mktfs_progress_text(figures, line + WIPE_LENGTH, line_capacity());
    state.shown = true;
    put(line, std::strlen(line));
}

}  // namespace

mktfs_progress::mktfs_progress(std::uint64_t size, unsigned passes) {
    const clock::time_point now = clock::now();
    state = {.watched = size != 0 && somebody_watches(),
             .size = size,
             .passes = passes,
             .start = now,
             .next = now + FIRST_AFTER};
}

mktfs_progress::~mktfs_progress() {
    mktfs_progress_wipe();
    state.watched = false;
}

void mktfs_progress_add(std::uint64_t bytes) {
    if (!state.watched)
        return;
    state.done += bytes;
    const clock::time_point now = clock::now();
    if (now < state.next)
        return;
    show(now);
    state.next = now + INTERVAL;
}

void mktfs_progress_wipe() {
    if (!state.shown)
        return;
    state.shown = false;
    put(WIPE, WIPE_LENGTH);
}

void mktfs_progress_text(const mktfs_progress_figures &figures, char *out, std::size_t capacity) {
    const double total = static_cast<double>(figures.size) * figures.passes;
    const double share = std::clamp(static_cast<double>(figures.done) / total, 1e-9, 1.0);
    const double speed = share * static_cast<double>(figures.size) / figures.seconds / (1 << 20);
    // At most 99:59:59, which fits the line.
    const double left = std::min(figures.seconds / share - figures.seconds, 359999.0);
    const auto seconds = static_cast<unsigned>(left);
    char time[16];
    if (seconds < 3600)
        std::snprintf(time, sizeof time, "%u:%02u", seconds / 60, seconds % 60);
    else
        std::snprintf(time, sizeof time, "%u:%02u:%02u", seconds / 3600, seconds / 60 % 60, seconds % 60);
    std::snprintf(out, capacity, "%3u%%  %.*f MiB/s  %s left", static_cast<unsigned>(share * 100),
                  speed < 10 ? 1 : 0, speed, time);
}
