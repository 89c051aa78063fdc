/* Programs outside are compiled with the sizes and offsets of the public structures, so these are
 * part of the binary interface. What a class structure adds to its parent's is counted in slots. */

#include "support/fixture.h"

#define SLOT(parent, type, field) \
#type "/" #field, (G_STRUCT_OFFSET(type, field) - sizeof(parent)) / sizeof(gpointer)
#define SLOTS(parent, type) #type "/slots", (sizeof(type) - sizeof(parent)) / sizeof(gpointer)
#define OFFSET(type, field) #type "/" #field, G_STRUCT_OFFSET(type, field)
#define SIZE(type) #type "/size", sizeof(type)

/* Its alignment differs from machine to machine. */
typedef struct {
  char byte;
  gint64 number;
} Aligned;
enum { ALIGNMENT = G_STRUCT_OFFSET(Aligned, number) };

typedef struct {
  const char *name;
  gsize actual;
  gsize promised;
} Row;

static const Row rows[] = {
    {SLOT(GObjectClass, VekMetricClass, report), 0},
    {SLOTS(GObjectClass, VekMetricClass), 1},
    {SLOTS(VekMetricClass, VekMetricHistogramClass), 0},

    {SLOT(GObjectClass, VekMetricStoreClass, add), 0},
    {SLOT(GObjectClass, VekMetricStoreClass, add_range), 1},
    {SLOT(GObjectClass, VekMetricStoreClass, get_snapshot), 2},
    {SLOTS(GObjectClass, VekMetricStoreClass), 3},

    {SLOT(GTypeInterface, VekMetricReporterInterface, process_count), 0},
    {SLOT(GTypeInterface, VekMetricReporterInterface, process_value), 1},
    {SLOT(GTypeInterface, VekMetricReporterInterface, process_timeline_samples), 2},
    {SLOT(GTypeInterface, VekMetricReporterInterface, process_aggregated), 3},
    {SLOT(GTypeInterface, VekMetricReporterInterface, flush), 4},
    {SLOTS(GTypeInterface, VekMetricReporterInterface), 5},

    {SLOTS(GObject, VekMetric), 0},
    {SLOTS(VekMetric, VekMetricHistogram), 0},
    {SLOTS(GObject, VekMetricStore), 0},

    {OFFSET(VekMetricRange, id), 0},
    {OFFSET(VekMetricRange, start), ALIGNMENT},
    {OFFSET(VekMetricRange, end), ALIGNMENT + 8},
    {SIZE(VekMetricRange), ALIGNMENT + 16},
};

TEST_ROWS(size_is_as_promised, rows) {
  const Row *row = data;
  g_assert_cmpuint(row->actual, ==, row->promised);
}
