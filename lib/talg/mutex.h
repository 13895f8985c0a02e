// The optional mutex of the containers: one that was never initialised locks
// nothing.  pthread is used directly so that failures reach the caller.
#pragma once

#include <pthread.h>

class talg_mutex {
public:
    talg_mutex() = default;
    talg_mutex(const talg_mutex &) = delete;
    talg_mutex &operator=(const talg_mutex &) = delete;
    ~talg_mutex() {
        if (ready_)
            pthread_mutex_destroy(&mutex_);
    }

    // `type` is a PTHREAD_MUTEX_ constant.  Returns 0 or the system's error.
    [[nodiscard]] int init(int type) {
        pthread_mutexattr_t attributes;
        int err = pthread_mutexattr_init(&attributes);
        if (err != 0)
            return err;
        err = pthread_mutexattr_settype(&attributes, type);
        if (err == 0)
            err = pthread_mutex_init(&mutex_, &attributes);
        pthread_mutexattr_destroy(&attributes);
        ready_ = err == 0;
        return err;
    }

    [[nodiscard]] int lock() { return ready_ ? pthread_mutex_lock(&mutex_) : 0; }
    [[nodiscard]] int unlock() { return ready_ ? pthread_mutex_unlock(&mutex_) : 0; }

private:
    pthread_mutex_t mutex_;
    bool ready_ = false;
};

// Holds a mutex for a scope.  When error() is not 0 it is not held.
class talg_mutex_guard {
public:
    explicit talg_mutex_guard(talg_mutex &mutex) : mutex_(mutex), error_(mutex.lock()) {}
    talg_mutex_guard(const talg_mutex_guard &) = delete;
    talg_mutex_guard &operator=(const talg_mutex_guard &) = delete;
    ~talg_mutex_guard() {
        if (error_ == 0)
            static_cast<void>(mutex_.unlock());
    }

    [[nodiscard]] int error() const { return error_; }

private:
    talg_mutex &mutex_;
    int error_;
};
