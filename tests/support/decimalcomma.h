#pragma once

/* A locale in which printf() writes 0.5 as "0,5". */

#include <glib.h>

/* Begins a test that needs such a locale: runs the same test in a process of its own, where this
 * sets the locale and returns TRUE. Here it returns FALSE when that process has passed, or when
 * there can be no such locale, and the test is skipped. */
gboolean in_decimal_comma(void);
