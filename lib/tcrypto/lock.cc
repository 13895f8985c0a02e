#include "tcrypto/lock.h"

#include <cstring>

#include "tcrypto/log.h"

constinit tcrypto_mutex tcrypto_init_mutex = {
    .lock_failure = "failed to lock tcrypto init mutex\n",
    .unlock_failure = "failed to unlock tcrypto init mutex\n",
};
constinit tcrypto_mutex tcrypto_library_mutex = {
    .lock_failure = "failed to lock library mutex\n",
    .unlock_failure = "failed to unlock library mutex\n",
};
constinit tcrypto_mutex tcrypto_plugin_mutex = {
    .lock_failure = "failed to lock plugin mutex\n",
    .unlock_failure = "failed to unlock plugin mutex\n",
};

namespace {

// The logger drops the line end of a format only, not one that an argument brings.
void log_line(const char *message) {
    TH_LOG(tcrypto_log, TH_LOG_ERROR, "%.*s\n", static_cast<int>(std::strcspn(message, "\n")), message);
}

}  // namespace

tcrypto_lock::tcrypto_lock(tcrypto_mutex &mutex) : mutex_(mutex), error_(pthread_mutex_lock(&mutex.mutex)) {
    if (error_ != 0)
        log_line(mutex_.lock_failure);
}

tcrypto_lock::~tcrypto_lock() {
    if (error_ == 0 && pthread_mutex_unlock(&mutex_.mutex) != 0)
        log_line(mutex_.unlock_failure);
}
