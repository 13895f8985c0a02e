// A pool of threads for work that falls into independent pieces of about equal size.  The
// thread that made the pool is one of the workers, so a pool of one starts no thread.
//
// Threads: a pool serves one caller at a time.
#pragma once

#include <cstddef>

struct talg_workers;

inline constexpr unsigned TALG_MAX_WORKERS = 64;

// Does the piece `index`.  `worker` is below the count that the pool was made with
// and belongs to one thread for the pool's life (0 is the caller).
using talg_workers_job = void (*)(void *arg, std::size_t index, unsigned worker);

// Makes a pool of `count` workers, at most TALG_MAX_WORKERS.  A thread that cannot be
// started is no failure: the pool is then smaller.  Null for a count below 2 and when
// memory is out; a null pool works like one of one worker.
//
// The threads block every signal but those that a thread's own step raises in it (a fault,
// or a write beyond the limit of a file's size): if those were blocked, the process would
// end without its handlers, or not end.
[[nodiscard]] talg_workers *talg_workers_create(unsigned count);

// Ends and joins the threads.  Null is allowed.
void talg_workers_destroy(talg_workers *workers);

// Calls job(arg, index, worker) for every index below `count`, in any order, and
// returns when all calls have returned.  What the caller wrote before is visible to
// the jobs, what they wrote is visible to the caller afterwards.
void talg_workers_run(talg_workers *workers, talg_workers_job job, void *arg, std::size_t count);
