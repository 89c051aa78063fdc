#include "modeltest.h"

#include <string.h>

/* Runs a history up to the first difference, which it returns, and drops what comes after; returns
 * NULL if there is none. */
static char *run(const ModelTest *test, guint32 seed, GArray *history) {
  g_autoptr(GRand) random = g_rand_new_with_seed(seed);
  gpointer subject = test->begin(random);
  char *difference = NULL;
  for (guint i = 0; i < history->len && !difference; i++) {
    difference = test->apply(subject, &g_array_index(history, ModelOperation, i));
    if (difference)
      g_array_set_size(history, i + 1);
  }
  test->end(subject);
  return difference;
}

static GArray *draw_history(const ModelTest *test, guint32 seed, guint length) {
  GArray *history = g_array_sized_new(FALSE, TRUE, sizeof(ModelOperation), length);
  g_array_set_size(history, length);
  g_autoptr(GRand) random = g_rand_new_with_seed(~seed);
  for (guint i = 0; i < length; i++)
    test->draw(random, &g_array_index(history, ModelOperation, i));
  return history;
}

/* Drops operations, many at a time and then single ones, for as long as there is a difference. */
static void shorten(const ModelTest *test, guint32 seed, GArray **history, char **difference) {
  for (guint dropped = (*history)->len / 2; dropped > 0;) {
    gboolean shortened = FALSE;
    for (guint i = 0; i + dropped <= (*history)->len;) {
      g_autoptr(GArray) shorter = g_array_copy(*history);
      g_array_remove_range(shorter, i, dropped);
      char *found = run(test, seed, shorter);
      if (found) {
        g_free(*difference);
        *difference = found;
        g_array_unref(*history);
        *history = g_steal_pointer(&shorter);
        shortened = TRUE;
      } else {
        i++;
      }
    }
    if (!shortened || dropped > 1)
      dropped /= 2;
  }
}

char *describe_number(gdouble number) {
  for (int digits = 15; digits <= 17; digits++) {
    g_autofree char *text = g_strdup_printf("%.*g", digits, number);
    if (digits == 17 || g_ascii_strtod(text, NULL) == number)
      return g_steal_pointer(&text);
  }
  g_assert_not_reached();
}

static void check(const ModelTest *test, guint32 seed, GArray *history) {
  g_autofree char *difference = run(test, seed, history);
  if (!difference)
    return;

  guint length = history->len;
  g_autoptr(GArray) shorter = g_array_ref(history);
  shorten(test, seed, &shorter, &difference);
  g_test_message("history of seed %u, shortened to %u of %u operations:", seed, shorter->len,
                 length);
  for (guint i = 0; i < shorter->len; i++) {
    g_autofree char *text = test->describe(&g_array_index(shorter, ModelOperation, i));
    g_test_message("  %s", text);
  }
  g_assert_cmpstr(difference, ==, NULL);
}

/* Checks the history that bytes stand for: each four are the seed of an operation, after those of
 * the whole. So bytes that are cut, moved or repeated do the same to the operations. */
static void check_bytes(const ModelTest *test, const guint8 *bytes, gsize size) {
  g_autofree guint32 *seeds = g_new0(guint32, size / sizeof(guint32) + 1);
  memcpy(seeds, bytes, size / sizeof(guint32) * sizeof(guint32));
  g_autoptr(GRand) random = g_rand_new_with_seed(0);
  g_autoptr(GArray) history = g_array_new(FALSE, TRUE, sizeof(ModelOperation));
  for (gsize i = 1; i < size / sizeof(guint32); i++) {
    g_rand_set_seed(random, seeds[i]);
    g_array_set_size(history, history->len + 1);
    test->draw(random, &g_array_index(history, ModelOperation, history->len - 1));
  }
  check(test, seeds[0], history);
}

#ifdef FUZZING

int LLVMFuzzerRunDriver(int *argc, char ***argv, int (*run)(const guint8 *, gsize));

static const ModelTest *fuzzed;

static int check_input(const guint8 *bytes, gsize size) {
  check_bytes(fuzzed, bytes, size);
  return 0;
}

/* Lets the fuzzer find the histories. */
static void check_inputs(const ModelTest *test) {
  int argc;
  char **argv;
  g_assert_true(g_shell_parse_argv(g_getenv("FUZZER"), &argc, &argv, NULL));
  fuzzed = test;
  LLVMFuzzerRunDriver(&argc, &argv, check_input);
}

#else

/* Checks the histories that are kept for the fuzzer. */
static void check_inputs(const ModelTest *test) {
  const char *program = g_get_prgname() + strlen("test-");
  g_autofree char *folder = g_test_build_filename(G_TEST_DIST, "fuzz", program, NULL);
  g_autoptr(GDir) files = g_dir_open(folder, 0, NULL);
  for (const char *name; files && (name = g_dir_read_name(files));) {
    g_autofree char *path = g_build_filename(folder, name, NULL);
    g_autofree char *bytes = NULL;
    gsize size;
    g_assert_true(g_file_get_contents(path, &bytes, &size, NULL));
    check_bytes(test, (const guint8 *)bytes, size);
  }
}

#endif

void model_test_run(const ModelTest *test, guint n_operations) {
  check_inputs(test);
  for (guint length = 1, done = 0; done < n_operations; done += length++) {
    guint32 seed = (guint32)g_test_rand_int();
    g_autoptr(GArray) history = draw_history(test, seed, length);
    check(test, seed, history);
  }
}
