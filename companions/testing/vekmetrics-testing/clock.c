#define _GNU_SOURCE /* RTLD_DEFAULT */

#include "clock.h"

#include <dlfcn.h>

/* All in one object: whoever calls one of its functions gets those that take GLib's place, too.
 * They must be seen from other libraries, however this is compiled. */
#define EXPORTED __attribute__((visibility("default")))

static gint64 real_now = G_GINT64_CONSTANT(1000000000000000);
static gint64 monotonic_now = G_GINT64_CONSTANT(1000000000);
static void (*hook)(gboolean monotonic);

/* Other libraries would go on reading GLib's clocks, and nothing else would tell. */
static void check_exported(void) {
  /* Untested: this ends the process */
  if (dlsym(RTLD_DEFAULT, "g_get_real_time") != (void *)(guintptr)g_get_real_time)
    g_error("The clock is linked into a program that does not export it");
}

EXPORTED void vek_testing_clock_set(gint64 real_time, gint64 monotonic_time) {
  check_exported();
  __atomic_store_n(&real_now, real_time, __ATOMIC_RELAXED);
  __atomic_store_n(&monotonic_now, monotonic_time, __ATOMIC_RELAXED);
}

EXPORTED void vek_testing_clock_advance(gint64 microseconds) {
  check_exported();
  __atomic_fetch_add(&real_now, microseconds, __ATOMIC_RELAXED);
  __atomic_fetch_add(&monotonic_now, microseconds, __ATOMIC_RELAXED);
}

EXPORTED void vek_testing_clock_set_hook(void (*new_hook)(gboolean monotonic)) {
  __atomic_store_n(&hook, new_hook, __ATOMIC_RELEASE);
}

static gint64 read_clock(gint64 *now, gboolean monotonic) {
  gint64 reading = __atomic_load_n(now, __ATOMIC_RELAXED);
  void (*called)(gboolean monotonic) = __atomic_load_n(&hook, __ATOMIC_ACQUIRE);
  if (called)
    called(monotonic);
  return reading;
}

EXPORTED gint64 g_get_real_time(void) {
  return read_clock(&real_now, FALSE);
}

EXPORTED gint64 g_get_monotonic_time(void) {
  return read_clock(&monotonic_now, TRUE);
}
