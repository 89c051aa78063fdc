#include "work.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#define BLOCK_SIZE (64 * 1024)
#define PENDING_PER_THREAD 16

struct _Work {
  GThreadPool *pool;
  GChecksumType type;
  Figures *figures;
  WorkCallback callback;
  gpointer data;
  guint n_pending;
  guint max_pending;
  int stopped; /* atomic: what else the threads read never changes */
};

typedef struct {
  Job job;
  Work *work;
} Task;

/* Sends the whole file through the checksum, a block at a time. */
static gboolean read_file(int file, GChecksum *checksum, Figures *figures) {
  guint8 block[BLOCK_SIZE];
  gboolean empty = TRUE;
  ssize_t length;
  while ((length = read(file, block, sizeof block)) > 0) {
    g_checksum_update(checksum, block, length);
    vek_metric_counter_add(figures->bytes, length);
    empty = FALSE;
  }
  if (length < 0)
    return FALSE;

  vek_metric_counter_inc(empty ? figures->files_empty : figures->files_with_data);
  return TRUE;
}

static void hash_file(Job *job, GChecksumType type, Figures *figures) {
  int file = open(job->path, O_RDONLY | O_CLOEXEC);
  if (file < 0) {
    job->error_number = errno;
    return;
  }

  g_autoptr(GChecksum) checksum = g_checksum_new(type);
  if (read_file(file, checksum, figures))
    job->checksum = g_strdup(g_checksum_get_string(checksum));
  else
    job->error_number = errno;
  close(file);
}

static gboolean on_done(gpointer data) {
  Task *task = data;
  Work *work = task->work;

  work->n_pending--;
  work->callback(&task->job, work->data);

  g_free(task->job.path);
  g_free(task->job.checksum);
  g_free(task);
  return G_SOURCE_REMOVE;
}

static void on_thread(gpointer data, gpointer user_data) {
  Task *task = data;
  Work *work = user_data;

  if (!g_atomic_int_get(&work->stopped))
    hash_file(&task->job, work->type, work->figures);
  g_idle_add_full(G_PRIORITY_DEFAULT, on_done, task, NULL);
}

Work *work_new(int jobs, GChecksumType type, Figures *figures, WorkCallback callback,
               gpointer data) {
  Work *work = g_new0(Work, 1);
  work->pool = g_thread_pool_new(on_thread, work, jobs, FALSE, NULL);
  work->type = type;
  work->figures = figures;
  work->callback = callback;
  work->data = data;
  work->max_pending = (guint)jobs * PENDING_PER_THREAD;
  return work;
}

void work_free(Work *work) {
  g_thread_pool_free(work->pool, FALSE, TRUE);
  g_free(work);
}

void work_push(Work *work, const char *path) {
  Task *task = g_new0(Task, 1);
  task->job.path = g_strdup(path);
  task->work = work;
  work->n_pending++;
  g_thread_pool_push(work->pool, task, NULL);
}

gboolean work_is_full(Work *work) {
  return work->n_pending >= work->max_pending;
}

gboolean work_is_idle(Work *work) {
  return work->n_pending == 0;
}

void work_stop(Work *work) {
  g_atomic_int_set(&work->stopped, TRUE);
}
