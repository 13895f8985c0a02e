#include "base/cleanup.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "base/progress.h"

namespace {

// One registered file.  `pending` is set last and cleared first, so that a signal
// handler that sees it set sees the other fields complete.
struct cleanup_slot {
    std::atomic<bool> pending = false;
    dev_t device = 0;
    ino_t inode = 0;
    char path[PATH_MAX] = {};
};
static_assert(std::atomic<bool>::is_always_lock_free);

constexpr int SLOT_COUNT = 8;
constinit cleanup_slot slots[SLOT_COUNT];

// The signals that end the run by default and may come at any time.
constexpr int ending_signals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE, SIGXCPU, SIGXFSZ};

// Everything down to the handlers runs inside them: async-signal-safe calls only.

void remove_if_still_ours(const cleanup_slot &slot) {
    struct stat status;
    if (::lstat(slot.path, &status) != 0 || status.st_dev != slot.device || status.st_ino != slot.inode)
        return;
    if (S_ISREG(status.st_mode))
        ::unlink(slot.path);
    else if (S_ISDIR(status.st_mode))
        ::rmdir(slot.path);
}

// The last one first: a file before its folder.
void remove_pending_files() {
    for (int number = SLOT_COUNT; number-- > 0;) {
        if (slots[number].pending.load(std::memory_order_acquire))
            remove_if_still_ours(slots[number]);
    }
}

[[noreturn]] void die_by(int signal) {
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    ::sigaction(signal, &action, nullptr);
    sigset_t only;
    ::sigemptyset(&only);
    ::sigaddset(&only, signal);
    ::raise(signal);
    ::pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
    ::_exit(128 + signal);
}

void hold_ending_signals(sigset_t *previous) {
    sigset_t held;
    ::sigemptyset(&held);
    for (const int signal : ending_signals)
        ::sigaddset(&held, signal);
    ::sigaddset(&held, SIGBUS);  // one that is sent; a fault ends the process regardless
    ::pthread_sigmask(SIG_BLOCK, &held, previous);
}

void on_ending_signal(int signal) {
    mktfs_progress_wipe();
    remove_pending_files();
    die_by(signal);
}

void on_bus_error(int signal, siginfo_t *info, void *) {
    static constexpr char message[] = "mktfs: an input file changed or failed while it was read "
                                      "(Input/output error), run again when nothing writes to it\n";
    const bool raised_by_a_fault = info->si_code > 0;
    mktfs_progress_wipe();
    if (raised_by_a_fault && ::write(STDERR_FILENO, message, sizeof message - 1) < 0) {
        // standard error is gone, too
    }
    remove_pending_files();
    if (raised_by_a_fault)
        ::_exit(EIO);
    die_by(signal);
}

void handle_unless_ignored(int signal, const struct sigaction &action) {
    struct sigaction current = {};
    if (::sigaction(signal, nullptr, &current) == 0 && current.sa_handler != SIG_IGN)
        ::sigaction(signal, &action, nullptr);
}

void install_handlers() {
    struct sigaction action = {};
    ::sigfillset(&action.sa_mask);
    action.sa_handler = on_ending_signal;
    for (const int signal : ending_signals)
        handle_unless_ignored(signal, action);

    action.sa_flags = SA_SIGINFO;
    action.sa_sigaction = on_bus_error;
    ::sigaction(SIGBUS, &action, nullptr);
}

// An ignored SIGCHLD, which may be inherited, makes system() fail.
void reset_child_signal() {
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    ::sigaction(SIGCHLD, &action, nullptr);
}

// Otherwise the first file that is opened becomes standard output, and messages
// end up in the image.  open() takes the lowest free number, the closed one.
void open_standard_descriptors() {
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (::fcntl(descriptor, F_GETFD) < 0 && errno == EBADF && ::open("/dev/null", O_RDWR) < 0)
            ::open("/", O_RDONLY);  // holds the number; writes to it fail
    }
}

bool is_symbolic_link(const char *path) {
    struct stat status;
    return ::lstat(path, &status) == 0 && S_ISLNK(status.st_mode);
}

// Copies the path under which the file can be removed.
bool store_path(const char *path, char (&out)[PATH_MAX]) {
    if (is_symbolic_link(path))
        return ::realpath(path, out);
    const std::size_t length = std::strlen(path);
    if (length >= sizeof out)
        return false;
    std::memcpy(out, path, length + 1);
    return true;
}

cleanup_slot *slot_at(int slot) {
    return slot >= 0 && slot < SLOT_COUNT ? &slots[slot] : nullptr;
}

int free_slot() {
    for (int slot = 0; slot < SLOT_COUNT; ++slot) {
        if (!slots[slot].pending)
            return slot;
    }
    return -1;
}

}  // namespace

void mktfs_cleanup_install() {
    open_standard_descriptors();
    reset_child_signal();
    install_handlers();
    std::atexit(remove_pending_files);
}

int mktfs_cleanup_add(const char *path, int descriptor) {
    struct stat status;
    const int number = free_slot();
    if (number < 0 || !path || ::fstat(descriptor, &status) != 0 ||
        !(S_ISREG(status.st_mode) || S_ISDIR(status.st_mode)))
        return -1;
    cleanup_slot &slot = slots[number];
    if (!store_path(path, slot.path))
        return -1;
    slot.device = status.st_dev;
    slot.inode = status.st_ino;
    slot.pending.store(true, std::memory_order_release);
    return number;
}

void mktfs_cleanup_forget(int slot) {
    if (cleanup_slot *known = slot_at(slot))
        known->pending.store(false, std::memory_order_release);
}

void mktfs_cleanup_remove(int slot) {
    const cleanup_slot *known = slot_at(slot);
    if (!known || !known->pending)
        return;
    remove_if_still_ours(*known);
    mktfs_cleanup_forget(slot);
}

void mktfs_cleanup_finish(int slot) {
    hold_ending_signals(nullptr);
    mktfs_cleanup_forget(slot);
}

mktfs_signal_guard::mktfs_signal_guard() {
    hold_ending_signals(&previous_);
}

mktfs_signal_guard::~mktfs_signal_guard() {
    ::pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
}
