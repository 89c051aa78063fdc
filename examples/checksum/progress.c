#include "progress.h"

#include <stdio.h>
#include <unistd.h>

#define REDRAW_INTERVAL 100 /* milliseconds */
#define ERASE_LINE "\r\033[K"

/* There is only one terminal. */
static struct {
  Figures *figures;
  guint source_id;
  gboolean shown;
} progress;

static gboolean on_redraw(gpointer data) {
  (void)data;
  g_autofree char *size =
      g_format_size((guint64)vek_metric_counter_get_count(progress.figures->bytes));
  fprintf(stderr, ERASE_LINE "%" G_GINT64_FORMAT " files, %s", figures_get_files(progress.figures),
          size);
  progress.shown = TRUE;
  return G_SOURCE_CONTINUE;
}

void progress_start(Figures *figures) {
  if (!isatty(STDERR_FILENO))
    return;
  progress.figures = figures;
  progress.source_id = g_timeout_add(REDRAW_INTERVAL, on_redraw, NULL);
  on_redraw(NULL);
}

void progress_hide(void) {
  if (!progress.shown)
    return;
  fputs(ERASE_LINE, stderr);
  progress.shown = FALSE;
}

void progress_stop(void) {
  progress_hide();
  g_clear_handle_id(&progress.source_id, g_source_remove);
}
