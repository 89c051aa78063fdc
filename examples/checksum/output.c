#include "output.h"

#include <string.h>

#include "progress.h"

static const struct {
  const char *text;
  const char *escaped;
} escapes[] = {{"\\", "\\\\"}, {"\n", "\\n"}, {"\r", "\\r"}}; /* the backslash first */

/* As bytes: names are not always in the encoding of the locale. */
static void on_print(const char *text) {
  progress_hide();
  fputs(text, stdout);
  fflush(stdout);
}

static void on_print_error(const char *text) {
  progress_hide();
  fputs(text, stderr);
}

static GLogWriterOutput on_log(GLogLevelFlags level, const GLogField *fields, gsize n_fields,
                               gpointer data) {
  progress_hide();
  return g_log_writer_default(level, fields, n_fields, data);
}

void output_init(void) {
  g_set_print_handler(on_print);
  g_set_printerr_handler(on_print_error);
  g_log_set_writer_func(on_log, NULL, NULL);
}

void output_checksum(FILE *file, const char *checksum, const char *path) {
  g_autoptr(GString) name = g_string_new(path);
  for (gsize i = 0; i < G_N_ELEMENTS(escapes); i++)
    g_string_replace(name, escapes[i].text, escapes[i].escaped, 0);
  const char *mark = g_str_equal(name->str, path) ? "" : "\\";

  progress_hide();
  fprintf(file, "%s%s  %s\n", mark, checksum, name->str);
}

void output_error(const char *path, const char *message) {
  /* Control characters in a name must not reach the terminal. */
  g_autofree char *name = g_filename_display_name(path);
  for (char *c = name; *c; c++)
    if (g_ascii_iscntrl(*c))
      *c = '?';
  g_printerr("checksum: %s: %s\n", name, message);
}

gboolean output_flush(FILE *file, const char *path) {
  if (fflush(file) == 0 && !ferror(file))
    return TRUE;
  output_error(path, "write error");
  return FALSE;
}
