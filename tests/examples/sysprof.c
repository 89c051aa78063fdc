#include <sysprof-capture.h>

#include "support/fixture.h"
#include "support/folder.h"

/* Runs the example; its capture is read from the result. */
static SysprofCaptureReader *run_example(void) {
  char *folder = folder_new();
  g_autofree char *path = g_build_filename(folder, "example.syscap", NULL);
  char *command[] = {(char *)g_getenv("SYSPROF_EXAMPLE"), path, NULL};
  int status = -1;
  GSpawnFlags flags = G_SPAWN_DEFAULT;
  g_assert_true(g_spawn_sync(NULL, command, NULL, flags, NULL, NULL, NULL, NULL, &status, NULL));
  g_assert_cmpint(status, ==, 0);
  SysprofCaptureReader *reader = sysprof_capture_reader_new(path);
  g_assert_nonnull(reader);
  folder_remove(folder);
  return reader;
}

/* Reads the values of a counter of whole numbers or of others, as text. */
static char *read_counter(const char *category, const char *name, const char *unit) {
  SysprofCaptureReader *reader = run_example();
  g_autoptr(GString) values = g_string_new(NULL);
  SysprofCaptureCounter counter = {0};
  SysprofCaptureFrameType type;
  while (sysprof_capture_reader_peek_type(reader, &type)) {
    if (type == SYSPROF_CAPTURE_FRAME_CTRDEF) {
      const SysprofCaptureCounterDefine *define =
          sysprof_capture_reader_read_counter_define(reader);
      for (guint i = 0; i < define->n_counters; i++)
        if (g_str_equal(define->counters[i].category, category) &&
            g_str_equal(define->counters[i].name, name)) {
          g_assert_cmpuint(counter.id, ==, 0); /* is defined once */
          counter = define->counters[i];
        }
    } else if (type == SYSPROF_CAPTURE_FRAME_CTRSET) {
      const SysprofCaptureCounterSet *set = sysprof_capture_reader_read_counter_set(reader);
      for (guint i = 0; i < set->n_values; i++) {
        if (set->values[i / 8].ids[i % 8] != counter.id)
          continue;
        SysprofCaptureCounterValue value = set->values[i / 8].values[i % 8];
        if (counter.type == SYSPROF_CAPTURE_COUNTER_INT64)
          g_string_append_printf(values, " %" G_GINT64_FORMAT, value.v64);
        else
          g_string_append_printf(values, " %f", value.vdbl);
      }
    } else {
      sysprof_capture_reader_skip(reader);
    }
  }
  g_assert_cmpstr(counter.description, ==, unit);
  sysprof_capture_reader_unref(reader);
  return g_string_free(g_steal_pointer(&values), FALSE);
}

TEST(count_is_a_counter_of_whole_numbers) {
  g_autofree char *values = read_counter("algorithm sha256", "bytes", "Bytes");
  g_assert_cmpstr(values, ==, " 1000000 3000000 6000000");
}

TEST(value_is_a_counter) {
  g_autofree char *values = read_counter("general", "left", "");
  g_assert_cmpstr(values, ==, " 2.000000 1.000000 0.000000");
}

TEST(distribution_is_a_counter_for_each_statistic) {
  static const char *const expected[][2] = {
      {"size min", " 1000000.000000 1000000.000000 1000000.000000"},
      {"size p50", " 1000000.000000 1000000.000000 2000000.000000"},
      {"size p90", " 1000000.000000 1000000.000000 2800000.000000"},
      {"size max", " 1000000.000000 2000000.000000 3000000.000000"},
  };
  for (gsize i = 0; i < G_N_ELEMENTS(expected); i++) {
    g_autofree char *values = read_counter("general", expected[i][0], "Bytes");
    g_assert_cmpstr(values, ==, expected[i][1]);
  }
}

/* A mark on another clock, or in another unit, would be far outside the capture. */
TEST(range_is_a_mark_on_the_clock_of_the_capture) {
  SysprofCaptureReader *reader = run_example();
  gint64 second = 1000 * 1000 * 1000; /* in which the two clocks are read */
  gint64 previous = sysprof_capture_reader_get_start_time(reader) - second;
  gint64 latest = sysprof_capture_reader_get_end_time(reader) + second;
  g_autoptr(GString) marks = g_string_new(NULL);
  SysprofCaptureFrameType type;
  while (sysprof_capture_reader_peek_type(reader, &type)) {
    if (type != SYSPROF_CAPTURE_FRAME_MARK) {
      sysprof_capture_reader_skip(reader);
      continue;
    }
    const SysprofCaptureMark *mark = sysprof_capture_reader_read_mark(reader);
    g_string_append_printf(marks, " %s/%s", mark->group, mark->name);
    g_assert_cmpint(mark->frame.time, >=, previous);
    g_assert_cmpint(mark->duration, >, 0);
    previous = mark->frame.time + mark->duration;
    g_assert_cmpint(previous, <=, latest);
  }
  g_assert_cmpstr(marks->str, ==, " hashing/1 hashing/2 hashing/3");
  sysprof_capture_reader_unref(reader);
}
