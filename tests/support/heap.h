#pragma once

/* What a test program holds of the heap, to see that records are really given back. */

#include <glib.h>

G_BEGIN_DECLS

/* The bytes that are allocated, when no task runs. Stands still under a sanitizer, which finds
 * leaks by itself. */
gsize heap_get_used(void);

/* Calls the function many times; it must leave nothing behind. */
void assert_frees_all(void (*make_and_free)(void));

G_END_DECLS
