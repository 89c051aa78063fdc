#pragma once

/* What the tests of the stores share. */

#include <vekmetrics/vekmetrics.h>

G_BEGIN_DECLS

/* The samples in ascending order, as in "1 2.5 3"; "" without samples. */
char *describe_samples(VekMetricSnapshot *snapshot);

/* Takes a snapshot and compares its samples with such a text. */
#define assert_samples(store, samples)                                                        \
  G_STMT_START {                                                                              \
    g_autoptr(VekMetricSnapshot) snapshot_of_samples_ = vek_metric_store_get_snapshot(store); \
    g_autofree char *described_samples_ = describe_samples(snapshot_of_samples_);             \
    g_assert_cmpstr(described_samples_, ==, (samples));                                       \
  }                                                                                           \
  G_STMT_END

/* Takes a snapshot and compares its samples with a model's, which are in any order. Returns what
 * differs, or NULL. */
char *compare_samples(VekMetricStore *store, const gdouble *expected, guint n_expected);

/* Adds so many samples: the first value, that plus 1, and so on. */
void add_samples(VekMetricStore *store, gdouble first, guint n_samples);

/* Fails if another thread can add to an empty store while a snapshot is being made. Sets the
 * clock. */
void check_snapshot_keeps_others_out(VekMetricStore *store);

/* Adds from several threads while snapshots are taken, and fails if a sample is lost or doubled.
 * The store holds the newest samples, of which it has room for so many; the clock stands still. */
void check_adding_from_threads(VekMetricStore *store, guint capacity);

G_END_DECLS
