// The three mutexes of the library.  Whoever needs several takes them in the
// order in which they are declared here.
#pragma once

#include <pthread.h>

// Error-checking: a provider that calls back into the library while a mutex of
// its caller is held gets EDEADLK instead of hanging.
struct tcrypto_mutex {
    const char *lock_failure;
    const char *unlock_failure;
    pthread_mutex_t mutex = PTHREAD_ERRORCHECK_MUTEX_INITIALIZER_NP;
};

extern tcrypto_mutex tcrypto_init_mutex;     // the reference count and the configuration path
extern tcrypto_mutex tcrypto_library_mutex;  // the plugin list, tags and binding
extern tcrypto_mutex tcrypto_plugin_mutex;   // algorithm lists and live contexts of every plugin

// Holds a mutex for its scope.  Logs a failure to take or to release it.
class tcrypto_lock {
public:
    explicit tcrypto_lock(tcrypto_mutex &mutex);
    tcrypto_lock(const tcrypto_lock &) = delete;
    tcrypto_lock &operator=(const tcrypto_lock &) = delete;
    ~tcrypto_lock();

    // 0, or the error number with which the mutex could not be taken.
    [[nodiscard]] int error() const { return error_; }

private:
    tcrypto_mutex &mutex_;
    int error_;
};
