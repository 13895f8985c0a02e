#include "talg/workers.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <new>

#include "th/lock.h"

namespace {

struct worker_thread {
    talg_workers *pool = nullptr;
    unsigned number = 0;
    pthread_t handle{};
};

}  // namespace

struct talg_workers {
    th_mutex mutex;                                   // guards what is not atomic
    pthread_cond_t begin = PTHREAD_COND_INITIALIZER;  // a round begins, or the end
    pthread_cond_t done = PTHREAD_COND_INITIALIZER;   // the last thread has finished the round
    std::uint64_t round = 0;
    bool ends = false;
    unsigned busy = 0;  // threads that have not finished the round
    talg_workers_job job = nullptr;
    void *arg = nullptr;
    std::size_t count = 0;
    std::atomic<std::size_t> next = 0;  // the first index not yet taken
    unsigned threads = 0;
    worker_thread thread[TALG_MAX_WORKERS - 1];
};

namespace {

void take_pieces(talg_workers &pool, unsigned worker) {
    for (std::size_t index = pool.next++; index < pool.count; index = pool.next++)
        pool.job(pool.arg, index, worker);
}

// Waits for a round after `seen`; false at the end.
bool await_round(talg_workers &pool, std::uint64_t &seen) {
    const th_lock lock(pool.mutex);
    while (pool.round == seen && !pool.ends)
        pthread_cond_wait(&pool.begin, &pool.mutex.handle);
    seen = pool.round;
    return !pool.ends;
}

void leave_round(talg_workers &pool) {
    const th_lock lock(pool.mutex);
    if (--pool.busy == 0)
        pthread_cond_signal(&pool.done);
}

void *serve(void *arg) {
    const auto &self = *static_cast<const worker_thread *>(arg);
    for (std::uint64_t seen = 0; await_round(*self.pool, seen);) {
        take_pieces(*self.pool, self.number);
        leave_round(*self.pool);
    }
    return nullptr;
}

sigset_t signals_to_block() {
    sigset_t set;
    sigfillset(&set);
    for (const int raised : {SIGBUS, SIGSEGV, SIGILL, SIGFPE, SIGTRAP, SIGSYS, SIGXFSZ})
        sigdelset(&set, raised);
    return set;
}

// Threads inherit the mask of the one that starts them.
void start_threads(talg_workers &pool, unsigned count) {
    const sigset_t blocked = signals_to_block();
    sigset_t before;
    if (pthread_sigmask(SIG_BLOCK, &blocked, &before) != 0)
        return;
    while (pool.threads < count) {
        worker_thread &thread = pool.thread[pool.threads];
        thread.pool = &pool;
        thread.number = pool.threads + 1;
        if (pthread_create(&thread.handle, nullptr, serve, &thread) != 0)
            break;
        ++pool.threads;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace

talg_workers *talg_workers_create(unsigned count) {
    if (count < 2)
        return nullptr;
    auto *pool = new (std::nothrow) talg_workers;
    if (pool)
        start_threads(*pool, std::min(count, TALG_MAX_WORKERS) - 1);
    return pool;
}

void talg_workers_destroy(talg_workers *workers) {
    if (!workers)
        return;
    {
        const th_lock lock(workers->mutex);
        workers->ends = true;
        pthread_cond_broadcast(&workers->begin);
    }
    for (unsigned i = 0; i < workers->threads; ++i)
        pthread_join(workers->thread[i].handle, nullptr);
    pthread_cond_destroy(&workers->begin);
    pthread_cond_destroy(&workers->done);
    pthread_mutex_destroy(&workers->mutex.handle);
    delete workers;
}

void talg_workers_run(talg_workers *workers, talg_workers_job job, void *arg, std::size_t count) {
    if (!workers || workers->threads == 0 || count < 2) {
        for (std::size_t index = 0; index < count; ++index)
            job(arg, index, 0);
        return;
    }
    {
        const th_lock lock(workers->mutex);
        workers->job = job;
        workers->arg = arg;
        workers->count = count;
        workers->next = 0;
        workers->busy = workers->threads;
        ++workers->round;
        pthread_cond_broadcast(&workers->begin);
    }
    take_pieces(*workers, 0);
    const th_lock lock(workers->mutex);
    while (workers->busy > 0)
        pthread_cond_wait(&workers->done, &workers->mutex.handle);
}
