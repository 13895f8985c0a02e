// What must not outlive an unfinished run: the output of a build, the temporary files of
// the signing command, the file that an extraction is writing and its folder while that is
// empty.  A registered file is removed when the process exits by any route (return, exit of
// a library, fatal message) or is ended by SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE,
// SIGXCPU, SIGXFSZ or SIGBUS, unless it was forgotten before.
//
// Only a regular file or empty folder that still has the device and inode number of
// the registered descriptor is removed: never a device node, never a file that
// somebody else put in its place.  Not thread-safe (the tool runs one thread);
// safe against signals at any moment.
#pragma once

#include <csignal>

// Installs the signal handlers and the exit hook, and opens descriptors 0 to 2 on
// /dev/null where the caller left them closed.  Called once, first in main.
void mktfs_cleanup_install();

// Registers the file or folder open at `descriptor` under `path` (copied; at most 4095
// bytes; a symbolic link stands for the file it leads to).  Returns a slot number, or
// -1 when it is something else, the path is too long or all slots are taken: then
// nothing will be removed.
[[nodiscard]] int mktfs_cleanup_add(const char *path, int descriptor);

// The file is complete (or already removed) and is left alone from now on.
void mktfs_cleanup_forget(int slot);

// The run is over except for its exit: the file stays, and signals that would end the
// process are held back from here on.
void mktfs_cleanup_finish(int slot);

// Removes the file now and forgets it.
void mktfs_cleanup_remove(int slot);

// Holds back the signals that end the run for as long as it lives, so that none can
// fall between the creation of a file and its registration.
class mktfs_signal_guard {
public:
    mktfs_signal_guard();
    ~mktfs_signal_guard();
    mktfs_signal_guard(const mktfs_signal_guard &) = delete;
    mktfs_signal_guard &operator=(const mktfs_signal_guard &) = delete;

private:
    sigset_t previous_;
};
