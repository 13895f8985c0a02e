#include "th/lock.h"

#include <utility>

namespace {

void report(const th_mutex &mutex, bool taking, int error) {
    if (error != 0 && mutex.failed)
        mutex.failed(mutex, taking, error);
}

}  // namespace

th_lock::th_lock(th_mutex *mutex) : mutex_(mutex) {
    if (!mutex)
        return;
    error_ = pthread_mutex_lock(&mutex->handle);
    if (error_ != 0)
        mutex_ = nullptr;
    report(*mutex, true, error_);
}

void th_lock::unlock() {
    if (th_mutex *const held = std::exchange(mutex_, nullptr))
        report(*held, false, pthread_mutex_unlock(&held->handle));
}
