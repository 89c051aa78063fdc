#pragma once

/* Forced into every source of a build with mutants: which of them has been chosen.
 *
 * The variable MUTANT is its number. If the variable MUTANTS is a file of zeros, the bytes of the
 * mutants that the program reaches are set: to 1 by the main thread, to 2 or 3 by others. */

#include <fcntl.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

static int mutant_chosen;
static char *mutants_reached;

/* System calls, because test programs replace functions of the C library. */
__attribute__((constructor)) static void mutant_choose(void) {
  const char *number = getenv("MUTANT");
  const char *file = getenv("MUTANTS");
  if (number)
    mutant_chosen = atoi(number);
  if (file) {
    int descriptor = (int)syscall(SYS_openat, AT_FDCWD, file, O_RDWR);
    off_t size = syscall(SYS_lseek, descriptor, 0, SEEK_END);
    mutants_reached =
        (char *)syscall(SYS_mmap, NULL, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    syscall(SYS_close, descriptor);
  }
}

static inline char mutant_thread(void) {
  static __thread char thread;
  if (!thread)
    thread = syscall(SYS_gettid) == syscall(SYS_getpid) ? 1 : 2;
  return thread;
}

static inline int mutant(int number) {
  if (mutants_reached)
    __atomic_fetch_or(&mutants_reached[number], mutant_thread(), __ATOMIC_RELAXED);
  return number == mutant_chosen;
}

#ifdef __cplusplus
/* Each thread takes a lock of its own instead. */
template <typename Lock>
Lock &mutant_unlocked(Lock &) {
  static thread_local Lock lock;
  return lock;
}
#endif
