#pragma once

/* Forced into every source of a build with the thread sanitizer.
 *
 * GLib's mutex is a bare futex inside a library that is not instrumented, so the sanitizer sees no
 * order between two critical sections and takes what the mutex guards for a race. These wrappers
 * tell it. GLib's reader/writer lock is one of the C library, which it knows. */

#include <glib.h>
#include <sanitizer/tsan_interface.h>

static inline void tsan_mutex_lock(GMutex *mutex) {
  g_mutex_lock(mutex);
  __tsan_acquire(mutex);
}

static inline void tsan_mutex_unlock(GMutex *mutex) {
  __tsan_release(mutex);
  g_mutex_unlock(mutex);
}

/* Not macros with arguments: the functions are also handed over by name. */
#define g_mutex_lock tsan_mutex_lock
#define g_mutex_unlock tsan_mutex_unlock
