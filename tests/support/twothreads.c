#include "twothreads.h"

#include "replace.h"

typedef struct {
  void (*function)(gpointer data);
  gpointer data;
} Second;

static int first_is_done; /* atomic, without an order */

static gpointer run_after_first(gpointer data) {
  const Second *second = data;
  while (!__atomic_load_n(&first_is_done, __ATOMIC_RELAXED))
    g_thread_yield();
  second->function(second->data);
  return NULL;
}

void run_in_turn(void (*first)(gpointer data), void (*second)(gpointer data), gpointer data) {
  first_is_done = FALSE;
  GThread *thread = g_thread_new("second", run_after_first, &(Second){second, data});
  first(data);
  __atomic_store_n(&first_is_done, TRUE, __ATOMIC_RELAXED);
  g_thread_join(thread);
}

static __thread enum { NEITHER, FIRST, SECOND } part;
static int first_stands, second_waits; /* atomic */

void stop_first(void) {
  if (part != FIRST)
    return;
  part = NEITHER;
  g_atomic_int_set(&first_stands, TRUE);
  while (!g_atomic_int_get(&second_waits))
    g_thread_yield();
}

void note_second(void) {
  if (part == SECOND)
    g_atomic_int_set(&second_waits, TRUE);
}

static gpointer run_while_first_stands(gpointer data) {
  const Second *second = data;
  while (!g_atomic_int_get(&first_stands))
    g_thread_yield();
  part = SECOND;
  second->function(second->data);
  note_second();
  return NULL;
}

void run_to_meet(void (*first)(gpointer data), void (*second)(gpointer data), gpointer data) {
  first_stands = second_waits = FALSE;
  GThread *thread = g_thread_new("second", run_while_first_stands, &(Second){second, data});
  part = FIRST;
  first(data);
  g_assert_true(part == NEITHER); /* it has stopped */
  g_thread_join(thread);
}

/* In place of GLib's. */

#define REPLACE_LOCK(Lock, take, try_to_take) \
  void take(Lock *lock) {                     \
    if (part == SECOND && try_to_take(lock))  \
      return;                                 \
    note_second();                            \
    NEXT(take)(lock);                         \
  }

#undef g_mutex_lock /* what makes the thread sanitizer see it goes around this */
REPLACE_LOCK(GMutex, g_mutex_lock, g_mutex_trylock)
REPLACE_LOCK(GRWLock, g_rw_lock_reader_lock, g_rw_lock_reader_trylock)
REPLACE_LOCK(GRWLock, g_rw_lock_writer_lock, g_rw_lock_writer_trylock)
