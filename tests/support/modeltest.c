#include "modeltest.h"

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

void model_test_run(const ModelTest *test, guint n_operations) {
  guint done = 0;
  for (guint length = 1; done < n_operations; done += length++) {
    guint32 seed = (guint32)g_test_rand_int();
    g_autoptr(GArray) history = draw_history(test, seed, length);
    g_autofree char *difference = run(test, seed, history);
    if (!difference)
      continue;

    shorten(test, seed, &history, &difference);
    g_test_message("history of seed %u, shortened to %u of %u operations:", seed, history->len,
                   length);
    for (guint i = 0; i < history->len; i++) {
      g_autofree char *text = test->describe(&g_array_index(history, ModelOperation, i));
      g_test_message("  %s", text);
    }
    g_assert_cmpstr(difference, ==, NULL);
  }
}
