#pragma once

/* How a test program takes the place of a function of GLib's or the C library's: it defines a
 * function of that name. Test programs export what they define, so the library calls it. */

#include <dlfcn.h>

/* The function that would be called without the program's own. */
#define NEXT(function)                                \
  (__extension__({                                    \
    static __typeof__(&function) next_;               \
    if (!next_)                                       \
      *(void **)&next_ = dlsym(RTLD_NEXT, #function); \
    next_;                                            \
  }))
