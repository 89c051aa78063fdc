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
  gint64 wall_clock; /* what it is ahead of the monotonic clock, in us */
  guint n_pending;
  guint max_pending;
  int n_pushed;
  int stopped; /* atomic: what else the threads read never changes */
};

typedef struct {
  Job job;
  Work *work;
  int number; /* from 1 */
} Task;

/* Sends the whole file through the checksum, a block at a time. */
static gboolean read_file(int file, GChecksum *checksum, Figures *figures) {
  guint8 block[BLOCK_SIZE];
  gint64 size = 0;
  ssize_t length;
  while ((length = read(file, block, sizeof block)) > 0) {
    g_checksum_update(checksum, block, length);
    vek_metric_counter_add(figures->bytes, length);
    vek_metric_meter_mark(figures->speed, (double)length);
    vek_metric_gauge_add_value(figures->throughput, (double)length);
    size += length;
  }
  if (length < 0)
    return FALSE;

  vek_metric_histogram_set(figures->file_size, (double)size);
  vek_metric_counter_inc(size == 0 ? figures->files_empty : figures->files_with_data);
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

/* Several files are hashed at the same time, so the timer, which keeps one start time, gets each
 * duration as a whole. Times are of the monotonic clock, which is never set, and are laid on the
 * wall clock of the other figures by the same distance for all: no two ranges of a worker overlap.
 */
static void time_file(Work *work, Job *job, int number) {
  VekMetricTimeline *worker = g_async_queue_pop(work->figures->idle_workers);
  gint64 start = g_get_monotonic_time();
  hash_file(job, work->type, work->figures);
  gint64 end = g_get_monotonic_time();

  if (job->checksum) {
    vek_metric_timer_set_usec(work->figures->file_time, end - start);
    vek_metric_timeline_add_range(worker, number, work->wall_clock + start, work->wall_clock + end);
  }
  g_async_queue_push_front(work->figures->idle_workers, worker);
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

  vek_metric_gauge_add_value(work->figures->waiting, -1.0);
  if (!g_atomic_int_get(&work->stopped))
    time_file(work, &task->job, task->number);
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
  work->wall_clock = g_get_real_time();
  work->wall_clock -= g_get_monotonic_time();
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
  task->number = ++work->n_pushed;
  work->n_pending++;
  vek_metric_gauge_add_value(work->figures->waiting, 1.0);
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
