#pragma once

/* To be included once by a program that has GIO write files, or libsoup answers in parts.
 *
 * They do so in threads of their own, and how they hand the work over and back is out of the thread
 * sanitizer's sight. With this it ignores what they do to memory; it finds the function by its name
 * in the program. */

const char *__tsan_default_options(void);
const char *__tsan_default_options(void) {
  return "ignore_noninstrumented_modules=1";
}
