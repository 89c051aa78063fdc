#include "work.h"

#include <errno.h>
#include <fcntl.h>
#include <fts.h>
#include <stdio.h>
#include <unistd.h>

struct _Work {
  gboolean quiet;
  Figures *figures;
  GMainLoop *loop;
  GThread **threads;
  int n_threads;
  int n_started; /* atomic, as the two below */
  int n_running;
  int stopped;

  GMutex lock; /* guards the two below */
  FTS *walk;
  int n_files;
};

static void fail(Work *work, const char *path, int error_number) {
  figures_count_error(work->figures, error_number);
  g_autofree char *name = g_filename_display_name(path);
  g_printerr("checksum: %s: %s\n", name, g_strerror(error_number));
}

/* Walks on to the next regular file; only links among the folders given are followed. */
static char *find_file(Work *work, int *number) {
  g_mutex_lock(&work->lock);
  char *path = NULL;
  FTSENT *entry;
  while (!path && !g_atomic_int_get(&work->stopped) && (entry = fts_read(work->walk))) {
    switch (entry->fts_info) {
    case FTS_F: path = g_strdup(entry->fts_path); break;
    case FTS_D: vek_metric_counter_inc(work->figures->folders); break;
    case FTS_DP: break;
    case FTS_DNR:
    case FTS_ERR:
    case FTS_NS: fail(work, entry->fts_path, entry->fts_errno); break;
    default: vek_metric_counter_inc(work->figures->skipped);
    }
  }
  *number = ++work->n_files;
  g_mutex_unlock(&work->lock);
  return path;
}

static gboolean read_file(int file, GChecksum *checksum, Figures *figures) {
  guint8 block[64 * 1024];
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

/* A line of sha256sum, which marks a name with escapes by a backslash before it all. */
static void print_line(const char *checksum, const char *path) {
  static const char *const escapes[][2] = {{"\\", "\\\\"}, {"\n", "\\n"}, {"\r", "\\r"}};
  g_autoptr(GString) name = g_string_new(path);
  for (gsize i = 0; i < G_N_ELEMENTS(escapes); i++) /* the backslash first */
    g_string_replace(name, escapes[i][0], escapes[i][1], 0);
  printf("%s%s  %s\n", g_str_equal(name->str, path) ? "" : "\\", checksum, name->str);
}

/* The timer is shared, and keeps one start: it is given each duration as a whole. The range is of
 * the wall clock: its id is the number of the file in the walk. */
static void hash_file(Work *work, const char *path, int number, VekMetricTimeline *timeline) {
  gint64 start = g_get_monotonic_time();
  gint64 begin = g_get_real_time();
  int file = open(path, O_RDONLY | O_CLOEXEC);
  g_autoptr(GChecksum) checksum = g_checksum_new(G_CHECKSUM_SHA256);
  if (file < 0 || !read_file(file, checksum, work->figures)) {
    fail(work, path, errno);
  } else {
    gint64 usec = g_get_monotonic_time() - start;
    vek_metric_timer_set_usec(work->figures->file_time, usec);
    vek_metric_timeline_add_range(timeline, number, begin, begin + usec);
    if (!work->quiet)
      print_line(g_checksum_get_string(checksum), path);
  }
  if (file >= 0)
    close(file);
}

/* Called by the loop, so that it is running: one that does not run yet cannot be ended. */
static gboolean on_end(gpointer loop) {
  g_main_loop_quit(loop);
  return G_SOURCE_REMOVE;
}

static gpointer run(gpointer data) {
  Work *work = data;
  g_autofree char *name = g_strdup_printf("worker_%d", g_atomic_int_add(&work->n_started, 1) + 1);
  g_autoptr(VekMetricTimeline) timeline =
      vek_metric_registry_timeline_new(work->figures->registry, name);
  int number;
  char *path;
  while ((path = find_file(work, &number))) {
    vek_metric_gauge_add_value(work->figures->open_files, 1.0);
    hash_file(work, path, number, timeline);
    vek_metric_gauge_add_value(work->figures->open_files, -1.0);
    g_free(path);
  }
  if (g_atomic_int_dec_and_test(&work->n_running))
    g_idle_add(on_end, work->loop);
  return NULL;
}

Work *work_new(char **folders, int n_threads, gboolean quiet, Figures *figures, GMainLoop *loop) {
  Work *work = g_new0(Work, 1);
  work->quiet = quiet;
  work->figures = figures;
  work->loop = loop;
  work->walk = fts_open(folders, FTS_PHYSICAL | FTS_COMFOLLOW | FTS_NOCHDIR, NULL);
  g_mutex_init(&work->lock);
  work->n_threads = work->n_running = n_threads;
  work->threads = g_new(GThread *, n_threads);
  for (int i = 0; i < n_threads; i++)
    work->threads[i] = g_thread_new("worker", run, work);
  return work;
}

void work_free(Work *work) {
  g_atomic_int_set(&work->stopped, TRUE);
  for (int i = 0; i < work->n_threads; i++)
    g_thread_join(work->threads[i]);
  fts_close(work->walk);
  g_mutex_clear(&work->lock);
  g_free(work->threads);
  g_free(work);
}
