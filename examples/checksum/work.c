#include "work.h"

#include <errno.h>
#include <fcntl.h>
#include <fts.h>
#include <stdio.h>
#include <unistd.h>

struct _Work {
  char **folders;
  gboolean quiet, repeat;
  Figures *figures;
  GMainLoop *loop;
  VekMetricTimeline *workers;
  GThread **threads;
  int n_threads;
  int n_started; /* atomic, as the three below */
  int n_walks;
  int n_running;
  int stopped;

  GMutex lock; /* guards the two below */
  FTS *walk;
  gboolean found; /* a file, in this walk */
};

/* The first walk names what it cannot read; all of them count it. */
static void fail(Work *work, const char *path, int error_number) {
  figures_count_error(work->figures, error_number);
  if (g_atomic_int_get(&work->n_walks) > 1)
    return;
  g_autofree char *name = g_filename_display_name(path);
  g_printerr("checksum: %s: %s\n", name, g_strerror(error_number));
}

static void begin_walk(Work *work) {
  work->walk = fts_open(work->folders, FTS_PHYSICAL | FTS_COMFOLLOW | FTS_NOCHDIR, NULL);
  work->found = FALSE;
  g_atomic_int_inc(&work->n_walks);
}

/* Walks on to the next entry; a walk that found nothing is not repeated. */
static FTSENT *read_entry(Work *work) {
  FTSENT *entry = fts_read(work->walk);
  if (!entry && work->repeat && work->found) {
    fts_close(work->walk);
    begin_walk(work);
    entry = fts_read(work->walk);
  }
  return entry;
}

/* Walks on to the next regular file; only links among the folders given are followed. */
static char *find_file(Work *work) {
  g_mutex_lock(&work->lock);
  char *path = NULL;
  FTSENT *entry;
  while (!path && !g_atomic_int_get(&work->stopped) && (entry = read_entry(work))) {
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
  work->found |= path != NULL;
  g_mutex_unlock(&work->lock);
  return path;
}

static gboolean read_file(int file, GChecksum *checksum, Figures *figures) {
  guint8 block[64 * 1024];
  gint64 size = 0;
  ssize_t length;
  while ((length = read(file, block, sizeof block)) > 0) {
    g_checksum_update(checksum, block, length);
    figures_add_bytes(figures, length);
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
 * the wall clock: its id is the number of the worker. */
static void hash_file(Work *work, const char *path, int worker) {
  gint64 start = g_get_monotonic_time();
  gint64 begin = g_get_real_time();
  int file = open(path, O_RDONLY | O_CLOEXEC);
  g_autoptr(GChecksum) checksum = g_checksum_new(G_CHECKSUM_SHA256);
  if (file < 0 || !read_file(file, checksum, work->figures)) {
    fail(work, path, errno);
  } else {
    gint64 usec = g_get_monotonic_time() - start;
    vek_metric_timer_set_usec(work->figures->file_time, usec);
    vek_metric_timeline_add_range(work->workers, worker, begin, begin + usec);
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
  int worker = g_atomic_int_add(&work->n_started, 1) + 1;
  char *path;
  while ((path = find_file(work))) {
    vek_metric_gauge_add_value(work->figures->open_files, 1.0);
    hash_file(work, path, worker);
    vek_metric_gauge_add_value(work->figures->open_files, -1.0);
    g_free(path);
  }
  if (g_atomic_int_dec_and_test(&work->n_running))
    g_idle_add(on_end, work->loop);
  return NULL;
}

Work *work_new(char **folders, int n_threads, gboolean quiet, gboolean repeat, Figures *figures,
               GMainLoop *loop) {
  Work *work = g_new0(Work, 1);
  work->folders = folders;
  work->quiet = quiet;
  work->repeat = repeat;
  work->figures = figures;
  work->loop = loop;
  work->workers = vek_metric_registry_timeline_new(figures->registry, "workers");
  g_mutex_init(&work->lock);
  begin_walk(work);
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
  g_object_unref(work->workers);
  g_mutex_clear(&work->lock);
  g_free(work->threads);
  g_free(work);
}
