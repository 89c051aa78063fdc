#pragma once

// Part of <vekmetrics/vekmetrics.hpp>: snapshots, dimension and datum records, and ranges.

#include <vekmetrics/owner.hpp>

#include <memory>

namespace vek {

class Snapshot : public Owner<VekMetricSnapshot> {
public:
  using Owner::Owner;
  static Snapshot create(const gdouble *samples, gsize n_samples) {
    return Snapshot(vek_metric_snapshot_new(samples, n_samples));
  }

  gint64 time() const { return vek_metric_snapshot_get_time(*this); }  // µs since the Unix epoch
  gsize n_samples() const { return vek_metric_snapshot_get_n_samples(*this); }
  gdouble sum() const { return vek_metric_snapshot_get_sum(*this); }
  gdouble average() const { return vek_metric_snapshot_get_average(*this); }
  gdouble min() const { return vek_metric_snapshot_get_min(*this); }
  gdouble max() const { return vek_metric_snapshot_get_max(*this); }
  gdouble quantile(gdouble q) const { return vek_metric_snapshot_get_quantile(*this, q); }
};

class Dimension : public Owner<VekMetricDimension> {
public:
  using Owner::Owner;
  static Dimension create(const gchar *name, const gchar *value) {
    return Dimension(vek_metric_dimension_new(name, value));
  }

  const gchar *name() const { return vek_metric_dimension_get_name(*this); }
  const gchar *value() const { return vek_metric_dimension_get_value(*this); }
};

class Datum : public Owner<VekMetricDatum> {
public:
  using Owner::Owner;
  static Datum create(const gchar *metric_name) { return Datum(vek_metric_datum_new(metric_name)); }

  const gchar *metric_name() const { return vek_metric_datum_get_metric_name(*this); }
  VekMetricDimension **dimensions(guint *n_dimensions) const {
    return vek_metric_datum_get_dimensions(*this, n_dimensions);
  }
  void set_dimensions(VekMetricDimension **dimensions, guint n_dimensions) const {
    vek_metric_datum_set_dimensions(*this, dimensions, n_dimensions);
  }
  gint64 timestamp() const { return vek_metric_datum_get_timestamp(*this); }
  void set_timestamp(gint64 timestamp) const { vek_metric_datum_set_timestamp(*this, timestamp); }
  const gchar *unit() const { return vek_metric_datum_get_unit(*this); }
  void set_unit(const gchar *unit) const { vek_metric_datum_set_unit(*this, unit); }
  gdouble value() const { return vek_metric_datum_get_value(*this); }
  void set_value(gdouble value) const { vek_metric_datum_set_value(*this, value); }
  bool value_set() const { return vek_metric_datum_get_value_set(*this); }
  void statistic_values(guint64 *sample_count, gdouble *sum, gdouble *minimum,
                        gdouble *maximum) const {
    vek_metric_datum_get_statistic_values(*this, sample_count, sum, minimum, maximum);
  }
  void set_statistic_values(guint64 sample_count, gdouble sum, gdouble minimum,
                            gdouble maximum) const {
    vek_metric_datum_set_statistic_values(*this, sample_count, sum, minimum, maximum);
  }
  bool statistic_values_set() const { return vek_metric_datum_get_statistic_values_set(*this); }
};

// Ranges that were moved out of a timeline, the newest first:
// for (const VekMetricRange &range : timeline.move_data()) ...
class Ranges {
public:
  class Iterator {
  public:
    explicit Iterator(GSList *position) : position(position) {}
    const VekMetricRange &operator*() const {
      return *static_cast<VekMetricRange *>(position->data);
    }
    Iterator &operator++() {
      position = position->next;
      return *this;
    }
    bool operator!=(const Iterator &other) const { return position != other.position; }

  private:
    GSList *position;
  };

  explicit Ranges(GSList *owned) : list(owned) {}
  Iterator begin() const { return Iterator(list.get()); }
  Iterator end() const { return Iterator(nullptr); }

private:
  struct Free {
    void operator()(GSList *list) const { g_slist_free_full(list, g_free); }
  };
  std::unique_ptr<GSList, Free> list;
};

}  // namespace vek
