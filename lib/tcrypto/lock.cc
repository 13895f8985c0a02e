#include "tcrypto/lock.h"

#include "tcrypto/log.h"

namespace {

void log_failure(const th_mutex &mutex, bool taking, int) {
    TH_LOG(tcrypto_log, TH_LOG_ERROR, "failed to %s %s mutex\n", taking ? "lock" : "unlock", mutex.name);
}

// Error-checking: a provider that calls back into the library while a mutex of
// its caller is held gets EDEADLK instead of hanging.
constexpr th_mutex logging_mutex(const char *name) {
    return {.handle = PTHREAD_ERRORCHECK_MUTEX_INITIALIZER_NP, .name = name, .failed = log_failure};
}

}  // namespace

constinit th_mutex tcrypto_init_mutex = logging_mutex("tcrypto init");
constinit th_mutex tcrypto_library_mutex = logging_mutex("library");
constinit th_mutex tcrypto_plugin_mutex = logging_mutex("plugin");
