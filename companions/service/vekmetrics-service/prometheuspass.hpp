#pragma once

// What the passes have brought to a Prometheus reporter: one series for each metric, found again
// from pass to pass.

#include <vekmetrics/snapshot.h>

namespace vekin::prometheus {

enum class Kind : char { count, value, aggregated };

inline constexpr gdouble kQuantiles[] = {0.5, 0.9, 0.99};

struct Aggregate {
  gsize n_samples;
  gdouble average, min, max;
  gdouble quantiles[G_N_ELEMENTS(kQuantiles)];
};

union Figures {
  gint64 count;
  gdouble value;
  Aggregate aggregate;
};

// The dimensions and the name as given, then the kind: what tells metrics apart and puts them in
// order. Each dimension has a 1 before and a NUL behind it, and the name a NUL on both sides, so
// that bytes compare as the strings do, fewer dimensions come before more, and no key begins with
// another.
struct Key {
  char *bytes;
  gsize size;
};

int compare_keys(const Key &a, const Key &b);

struct Series {
  Key key;
  const char *name;  // within the key
  char *labels;
  char *unit;  // or NULL
  Kind kind;

  Figures next;  // of the pass under way, if that has brought it
  bool is_next;

  Figures now;     // of the last pass that brought it
  bool is_now;     // false before the first
  gint64 brought;  // when that pass ended, on the monotonic clock
};

// A name that was declared monotonic, and what was told of it.
struct Declaration {
  bool told_down, told_negative;
};

// What decides over families beside the series themselves.
struct Policy {
  char *prefix;
  guint keep_seconds;
  GHashTable *monotonic;  // from a name as given to its Declaration
  GHashTable *negative;   // names of families that have shown a negative quantile
  GHashTable *told;       // keys of metrics of which was told that they are left out
};

// A table of series, by key.
GHashTable *series_table_new();

// Finds or makes the series of a metric. `scratch` holds the key meanwhile.
Series *series_table_get(GHashTable *table, GString *scratch, const char *name, char **dimensions,
                         Kind kind);

bool has_negative_quantile(const Series *series);

Aggregate aggregate(VekMetricSnapshot *snapshot);

// What a pass has changed in the set of series.
struct Changes {
  GPtrArray *came;       // of Series
  GPtrArray *gone;       // of Series that are no longer in the table, and freed with the array
  bool turned_negative;  // whether a series has a negative quantile that had none before
};

// Takes over what the pass that ends now has brought and drops what is kept no longer.
Changes take_pass(GHashTable *table, Policy &policy, gint64 time);

}  // namespace vekin::prometheus
