/* Tests of the version header. */

#include "support/fixture.h"

#include <vekmetrics/vekmetrics.h>

TEST(the_check_compares_number_by_number) {
  const int major = VEK_MAJOR_VERSION, minor = VEK_MINOR_VERSION, micro = VEK_MICRO_VERSION;
  const struct {
    int major, minor, micro;
    gboolean holds;
  } rows[] = {
      {major, minor, micro, TRUE},
      {major, minor, micro + 1, FALSE},
      {major, minor + 1, 0, FALSE},
      {major + 1, 0, 0, FALSE},
      {major, minor, micro - 1, TRUE},
      {major, minor - 1, micro + 9, TRUE},
      {major - 1, minor + 9, micro + 9, TRUE},
      {major + 1, minor - 1, micro - 1, FALSE},
  };
  for (gsize i = 0; i < G_N_ELEMENTS(rows); i++)
    g_assert_cmpint(VEK_CHECK_VERSION(rows[i].major, rows[i].minor, rows[i].micro), ==,
                    rows[i].holds);
}

TEST(the_preprocessor_can_check) {
#if VEK_CHECK_VERSION(0, 1, 0) && !VEK_CHECK_VERSION(1000, 0, 0)
  const gboolean checked = TRUE;
#else
  const gboolean checked = FALSE;
#endif
  g_assert_true(checked);
}
