// The mutex and the scoped lock of the libraries.  The owner of a mutex decides what a
// failure means.
#pragma once

#include <pthread.h>

struct th_mutex {
    pthread_mutex_t handle = PTHREAD_MUTEX_INITIALIZER;
    const char *name = "";
    // Called when taking, or else releasing, the mutex failed with an error number; may
    // abort.  Null: only th_lock::error reports it.
    void (*failed)(const th_mutex &mutex, bool taking, int error) = nullptr;
};

// Holds a mutex for a scope.
class th_lock {
public:
    // Null: there is nothing to lock.
    explicit th_lock(th_mutex *mutex);
    explicit th_lock(th_mutex &mutex) : th_lock(&mutex) {}
    th_lock(const th_lock &) = delete;
    th_lock &operator=(const th_lock &) = delete;
    ~th_lock() { unlock(); }

    // 0, or the error number with which the mutex could not be taken.
    [[nodiscard]] int error() const { return error_; }
    // Ends the hold before the scope does.
    void unlock();

private:
    th_mutex *mutex_;  // null when it is not held
    int error_ = 0;
};
