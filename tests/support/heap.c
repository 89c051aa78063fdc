#include "heap.h"

#include <malloc.h>

/* Threads that allocate at the same time get arenas of their own, whose heads count as used. */
__attribute__((constructor)) static void have_one_arena(void) {
  mallopt(M_ARENA_MAX, 1);
}

/* GLib keeps threads for further tasks, as many as there once were at a time. */
static void end_unused_threads(void) {
  g_thread_pool_stop_unused_threads();
  while (g_thread_pool_get_num_unused_threads() > 0)
    g_thread_yield();
}

gsize heap_get_used(void) {
  end_unused_threads();
  struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd; /* the latter of large blocks, each mapped by itself */
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
