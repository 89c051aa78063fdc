// Tests of the figures of one metric.

#include <vekmetrics-web/series.hpp>

#include "support/fixture.h"

#include <math.h>

using namespace vekin::web;

// Puts the number of each pass, and its negative, from the first to the last, where so many are
// kept.
static Series *make_series(guint64 first, guint64 last, guint n_passes) {
  auto *series = series_new(g_string_new("x"), "x", nullptr, "histogram", nullptr, 2);
  for (guint64 pass = first; pass <= last; pass++) {
    auto figure = static_cast<gdouble>(pass);
    series_put(series, pass, {{figure, -figure}}, n_passes);
  }
  return series;
}

// The passes up to 10 have these figures, and no others.
static void assert_passes(const Series *series, guint64 first, guint64 last) {
  for (guint64 pass = 1; pass <= 10; pass++) {
    auto figure = series_get(series, pass, 0), other = series_get(series, pass, 1);
    if (pass >= first && pass <= last) {
      g_assert_cmpfloat(figure, ==, static_cast<gdouble>(pass));
      g_assert_cmpfloat(other, ==, -static_cast<gdouble>(pass));
    } else {
      g_assert_true(isnan(figure) && isnan(other));
    }
  }
}

TEST(oldest_figures_make_room) {
  Series *series = make_series(2, 9, 6);
  assert_passes(series, 4, 9);
  series_unref(series);
}

TEST(passes_before_the_first_have_no_figures) {
  Series *series = make_series(7, 8, 6);
  assert_passes(series, 7, 8);
  series_unref(series);
}

TEST(shorter_series_has_lost_the_oldest) {
  Series *series = make_series(1, 9, 8);
  series_shrink(series, 8);
  assert_passes(series, 2, 9);
  series_shrink(series, 3);
  assert_passes(series, 7, 9);
  series_unref(series);
}
