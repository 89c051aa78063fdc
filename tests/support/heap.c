#include "heap.h"

#include <malloc.h>

/* Threads that allocate at the same time get arenas of their own, whose heads count as used. */
__attribute__((constructor)) static void have_one_arena(void) {
  mallopt(M_ARENA_MAX, 1);
}

/* GLib keeps threads for further tasks, and each holds some memory. How many there ever are depends
 * on when tasks come, so more than that are made before, and stay. */

enum { N_THREADS = 8 };

static void wait_for_all(gpointer data, gpointer n_running) {
  (void)data;
  g_slice_free1(1, g_slice_alloc(1)); /* a thread's first blocks bring their caches */
  g_atomic_int_inc((int *)n_running);
  while (g_atomic_int_get((int *)n_running) < N_THREADS)
    g_thread_yield();
}

static void make_threads(void) {
  g_thread_pool_set_max_idle_time(0);
  g_thread_pool_set_max_unused_threads(-1);
  int n_running = 0;
  GThreadPool *pool = g_thread_pool_new(wait_for_all, &n_running, N_THREADS, FALSE, NULL);
  for (int i = 0; i < N_THREADS; i++)
    g_thread_pool_push(pool, pool, NULL);
  g_thread_pool_free(pool, FALSE, TRUE);
}

static gsize get_used(void) {
  struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd; /* the latter of large blocks, each mapped by itself */
}

gsize heap_get_used(void) {
  static gboolean has_threads;
  if (!has_threads && get_used() > 0) /* not under a sanitizer */
    make_threads();
  has_threads = TRUE;
  return get_used();
}

void assert_frees_all(void (*make_and_free)(void)) {
  make_and_free(); /* types are made once and stay */
  gsize used = heap_get_used();
  guint n_rounds = used > 0 ? 10000 : 1; /* a sanitizer finds what one of them leaves */
  for (guint i = 0; i < n_rounds; i++)
    make_and_free();
  /* What is freed may be kept for reuse, so not every byte comes back; a leak costs many. */
  g_assert_cmpuint(heap_get_used(), <, used + n_rounds);
}
