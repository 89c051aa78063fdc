#include "faults.h"

#include "support/replace.h"

#include <errno.h>
#include <fcntl.h>
#include <netdb.h>
#include <stdarg.h>
#include <stdio.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

static GMutex lock; /* guards what follows */
static gboolean counting;
static Plan plan;
static guint n_calls;
static guint pass;
static Fault faults[MAX_FAULTS];
static guint n_faults;
static guint n_connections;

static thread_local gboolean paused;

enum Fate { WORKS, FAILS, HALVES };

static gboolean is_counting(void) {
  g_mutex_lock(&lock);
  gboolean result = counting && !paused;
  g_mutex_unlock(&lock);
  return result;
}

static Fate count_call(const char *function, gboolean can_halve) {
  if (paused)
    return WORKS;
  Fate fate = WORKS;
  g_mutex_lock(&lock);
  if (counting) {
    n_calls++;
    for (guint i = 0; i < MAX_FAULTS; i++)
      if (n_calls == plan.calls[i] && (!plan.halves || can_halve)) {
        faults[n_faults++] = {function, pass};
        fate = plan.halves ? HALVES : FAILS;
      }
  }
  g_mutex_unlock(&lock);
  return fate;
}

static gboolean fails(const char *function, int error) {
  if (count_call(function, FALSE) == WORKS)
    return FALSE;
  errno = error;
  return TRUE;
}

void faults_begin(const Plan *new_plan) {
  g_mutex_lock(&lock);
  plan = *new_plan;
  n_calls = pass = n_faults = n_connections = 0;
  counting = TRUE;
  g_mutex_unlock(&lock);
}

void faults_end(void) {
  g_mutex_lock(&lock);
  counting = FALSE;
  g_mutex_unlock(&lock);
}

void faults_pause(void) {
  paused = TRUE;
}

void faults_resume(void) {
  paused = FALSE;
}

void faults_set_pass(guint new_pass) {
  g_mutex_lock(&lock);
  pass = new_pass;
  g_mutex_unlock(&lock);
}

static guint get(const guint *field) {
  g_mutex_lock(&lock);
  guint value = *field;
  g_mutex_unlock(&lock);
  return value;
}

guint faults_get_pass(void) {
  return get(&pass);
}

guint faults_get_n_calls(void) {
  return get(&n_calls);
}

guint faults_get_n_faults(void) {
  return get(&n_faults);
}

const Fault *faults_get(guint i) {
  return &faults[i];
}

guint faults_get_n_connections(void) {
  return get(&n_connections);
}

static gboolean has_type(int fd, mode_t type) {
  struct stat status;
  return fstat(fd, &status) == 0 && (status.st_mode & S_IFMT) == type;
}

/* Folders and names. */

int mkdir(const char *path, mode_t mode) {
  return fails("mkdir", EACCES) ? -1 : NEXT(mkdir)(path, mode);
}

int rename(const char *from, const char *to) {
  return fails("rename", EIO) ? -1 : NEXT(rename)(from, to);
}

int remove(const char *path) {
  return fails("remove", EACCES) ? -1 : NEXT(remove)(path);
}

int unlink(const char *path) {
  return fails("unlink", EACCES) ? -1 : NEXT(unlink)(path);
}

int access(const char *path, int mode) {
  return fails("access", EACCES) ? -1 : NEXT(access)(path, mode);
}

int stat64(const char *path, struct stat64 *status) {
  return fails("stat", EACCES) ? -1 : NEXT(stat64)(path, status);
}

int lstat64(const char *path, struct stat64 *status) {
  return fails("lstat", EACCES) ? -1 : NEXT(lstat64)(path, status);
}

int fchmod(int fd, mode_t mode) {
  return fails("fchmod", EPERM) ? -1 : NEXT(fchmod)(fd, mode);
}

/* Files. */

int open64(const char *path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  mode_t mode = flags & O_CREAT ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return fails("open", ENOSPC) ? -1 : NEXT(open64)(path, flags, mode);
}

ssize_t write(int fd, const void *data, size_t size) {
  if (!has_type(fd, S_IFREG))
    return NEXT(write)(fd, data, size);
  switch (count_call("write", TRUE)) {
  case FAILS: errno = ENOSPC; return -1;
  case HALVES: return NEXT(write)(fd, data, (size + 1) / 2);
  default: return NEXT(write)(fd, data, size);
  }
}

/* The descriptor is closed in any case. */
int close(int fd) {
  gboolean late = has_type(fd, S_IFREG) && fails("close", EIO);
  int result = NEXT(close)(fd);
  if (!late)
    return result;
  errno = EIO;
  return -1;
}

/* A stream calls the functions above, and not those in the C library. */

static ssize_t write_all(void *cookie, const char *data, size_t size) {
  size_t n_written = 0;
  while (n_written < size) {
    ssize_t n = write(GPOINTER_TO_INT(cookie), data + n_written, size - n_written);
    if (n < 0)
      break;
    n_written += (size_t)n;
  }
  return (ssize_t)n_written;
}

static int close_file(void *cookie) {
  return close(GPOINTER_TO_INT(cookie));
}

FILE *fopen64(const char *path, const char *mode) {
  if (*mode != 'a' || !is_counting())
    return NEXT(fopen64)(path, mode);
  int fd = open64(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
  if (fd < 0)
    return nullptr;
  cookie_io_functions_t functions = {};
  functions.write = write_all;
  functions.close = close_file;
  return fopencookie(GINT_TO_POINTER(fd), mode, functions);
}

/* Sockets. */

int socket(int family, int type, int protocol) {
  return fails("socket", EMFILE) ? -1 : NEXT(socket)(family, type, protocol);
}

int bind(int fd, const struct sockaddr *address, socklen_t size) {
  return fails("bind", EADDRINUSE) ? -1 : NEXT(bind)(fd, address, size);
}

int listen(int fd, int backlog) {
  return fails("listen", EADDRINUSE) ? -1 : NEXT(listen)(fd, backlog);
}

int connect(int fd, const struct sockaddr *address, socklen_t size) {
  if (fails("connect", ECONNREFUSED))
    return -1;
  int result = NEXT(connect)(fd, address, size);
  if (address->sa_family == AF_INET && is_counting()) {
    g_mutex_lock(&lock);
    n_connections++;
    g_mutex_unlock(&lock);
  }
  return result;
}

static int accept_with(int fd, struct sockaddr *address, socklen_t *size, int flags) {
  switch (count_call("accept", TRUE)) {
  case FAILS: errno = EMFILE; return -1;
  case HALVES: errno = EINTR; return -1;
  default: return NEXT(accept4)(fd, address, size, flags);
  }
}

int accept(int fd, struct sockaddr *address, socklen_t *size) {
  return accept_with(fd, address, size, 0);
}

int accept4(int fd, struct sockaddr *address, socklen_t *size, int flags) {
  return accept_with(fd, address, size, flags);
}

int getsockname(int fd, struct sockaddr *address, socklen_t *size) {
  return fails("getsockname", ENOBUFS) ? -1 : NEXT(getsockname)(fd, address, size);
}

int getpeername(int fd, struct sockaddr *address, socklen_t *size) {
  return fails("getpeername", ENOTCONN) ? -1 : NEXT(getpeername)(fd, address, size);
}

ssize_t send(int fd, const void *data, size_t size, int flags) {
  switch (count_call("send", TRUE)) {
  case FAILS: errno = EPIPE; return -1;
  case HALVES: return NEXT(send)(fd, data, (size + 1) / 2, flags);
  default: return NEXT(send)(fd, data, size, flags);
  }
}

ssize_t sendmsg(int fd, const struct msghdr *message, int flags) {
  switch (count_call("send", TRUE)) {
  case FAILS: errno = EPIPE; return -1;
  case HALVES: errno = EINTR; return -1;
  default: return NEXT(sendmsg)(fd, message, flags);
  }
}

ssize_t recv(int fd, void *data, size_t size, int flags) {
  switch (count_call("recv", TRUE)) {
  case FAILS: errno = ECONNRESET; return -1;
  case HALVES: errno = EINTR; return -1;
  default: return NEXT(recv)(fd, data, size, flags);
  }
}

ssize_t recvmsg(int fd, struct msghdr *message, int flags) {
  switch (count_call("recv", TRUE)) {
  case FAILS: errno = ECONNRESET; return -1;
  case HALVES: errno = EINTR; return -1;
  default: return NEXT(recvmsg)(fd, message, flags);
  }
}

/* While calls are counted, every host is this machine. */
int getaddrinfo(const char *host, const char *service, const struct addrinfo *hints,
                struct addrinfo **addresses) {
  if (count_call("getaddrinfo", FALSE) != WORKS)
    return EAI_AGAIN;
  if (!is_counting())
    return NEXT(getaddrinfo)(host, service, hints, addresses);
  addrinfo known = *hints;
  known.ai_flags &= ~AI_ADDRCONFIG;  // it is found without a network, too
  return NEXT(getaddrinfo)("127.0.0.1", service, &known, addresses);
}
