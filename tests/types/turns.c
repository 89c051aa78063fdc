#include "turns.h"

#include "support/replace.h"

#include <linux/futex.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vekmetrics-testing/clock.h>

#define UNSEEN_BY_THREAD_SANITIZER __attribute__((no_sanitize("thread")))

static struct {
  int turn; /* the thread that runs, and alone touches all this */
  gboolean has_ended[N_THREADS];
  guint n_running;
  guint n_vain; /* attempts to take a lock since the last that succeeded */
  guint32 seed;
  guint64 random;
  guint64 trace; /* a hash of all turns so far */
} schedule;

static __thread int self = -1; /* the number of a thread that takes part */

UNSEEN_BY_THREAD_SANITIZER static void wait_for_turn(void) {
  for (;;) {
    int turn = __atomic_load_n(&schedule.turn, __ATOMIC_SEQ_CST);
    if (turn == self)
      return;
    syscall(SYS_futex, &schedule.turn, FUTEX_WAIT_PRIVATE, turn, NULL, NULL, 0);
  }
}

UNSEEN_BY_THREAD_SANITIZER static int draw_thread(void) {
  schedule.random = schedule.random * G_GUINT64_CONSTANT(6364136223846793005) + 1442695040888963407;
  guint skipped = (guint)(schedule.random >> 33) % schedule.n_running;
  int thread = 0;
  while (schedule.has_ended[thread] || skipped-- > 0)
    thread++;
  return thread;
}

UNSEEN_BY_THREAD_SANITIZER void turns_pass(void) {
  if (self < 0 || schedule.n_running == 0)
    return;
  int next = draw_thread();
  schedule.trace = schedule.trace * 31 + (guint64)next;
  if (next == self)
    return;
  gboolean ends = schedule.has_ended[self];
  __atomic_store_n(&schedule.turn, next, __ATOMIC_SEQ_CST);
  syscall(SYS_futex, &schedule.turn, FUTEX_WAKE_PRIVATE, N_THREADS, NULL, NULL, 0);
  if (!ends)
    wait_for_turn();
}

static void pass_turn_at_clock(gboolean monotonic) {
  (void)monotonic;
  turns_pass();
}

UNSEEN_BY_THREAD_SANITIZER void turns_begin(guint32 seed) {
  memset(&schedule, 0, sizeof schedule);
  schedule.n_running = N_THREADS;
  schedule.seed = seed;
  schedule.random = seed;
  vek_testing_clock_set_hook(pass_turn_at_clock);
}

UNSEEN_BY_THREAD_SANITIZER void turns_join(int thread) {
  self = thread;
  wait_for_turn();
}

UNSEEN_BY_THREAD_SANITIZER void turns_leave(void) {
  schedule.has_ended[self] = TRUE;
  schedule.n_running--;
  turns_pass();
  self = -1;
}

guint64 turns_get_trace(void) {
  return schedule.trace;
}

UNSEEN_BY_THREAD_SANITIZER static void note_attempt(gboolean succeeded) {
  schedule.n_vain = succeeded ? 0 : schedule.n_vain + 1;
  if (schedule.n_vain == 100000)
    g_error("the threads of the program of SCHEDULE_SEED=%u wait for each other", schedule.seed);
}

/* In place of GLib's, for the library. Whoever waits for a lock leaves the turn to others. */

#define REPLACE_LOCK(Lock, take, try_to_take, release) \
  void take(Lock *lock) {                              \
    if (self < 0) {                                    \
      NEXT(take)(lock);                                \
      return;                                          \
    }                                                  \
    turns_pass();                                      \
    while (!try_to_take(lock)) {                       \
      note_attempt(FALSE);                             \
      turns_pass();                                    \
    }                                                  \
    note_attempt(TRUE);                                \
  }                                                    \
  void release(Lock *lock) {                           \
    NEXT(release)(lock);                               \
    turns_pass();                                      \
  }

#undef g_mutex_lock /* what makes the thread sanitizer see them goes around these */
#undef g_mutex_unlock
REPLACE_LOCK(GMutex, g_mutex_lock, g_mutex_trylock, g_mutex_unlock)
REPLACE_LOCK(GRWLock, g_rw_lock_reader_lock, g_rw_lock_reader_trylock, g_rw_lock_reader_unlock)
REPLACE_LOCK(GRWLock, g_rw_lock_writer_lock, g_rw_lock_writer_trylock, g_rw_lock_writer_unlock)
