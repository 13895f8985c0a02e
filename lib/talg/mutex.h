// The optional mutex of the containers.
#pragma once

#include "th/lock.h"

class talg_mutex {
public:
    talg_mutex() = default;
    explicit talg_mutex(decltype(th_mutex::failed) failed) { mutex_.failed = failed; }
    talg_mutex(const talg_mutex &) = delete;
    talg_mutex &operator=(const talg_mutex &) = delete;
    ~talg_mutex() {
        if (ready_)
            pthread_mutex_destroy(&mutex_.handle);
    }

    // `type` is a PTHREAD_MUTEX_ constant.  Returns 0 or the system's error.
    [[nodiscard]] int init(int type) {
        pthread_mutexattr_t attributes;
        if (const int err = pthread_mutexattr_init(&attributes); err != 0)
            return err;
        int err = pthread_mutexattr_settype(&attributes, type);
        if (err == 0)
            err = pthread_mutex_init(&mutex_.handle, &attributes);
        pthread_mutexattr_destroy(&attributes);
        ready_ = err == 0;
        return err;
    }

    // For th_lock: null, so that nothing is locked, until init has succeeded.
    [[nodiscard]] th_mutex *get() { return ready_ ? &mutex_ : nullptr; }

private:
    th_mutex mutex_;
    bool ready_ = false;
};
