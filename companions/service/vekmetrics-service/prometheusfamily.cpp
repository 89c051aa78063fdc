#include "prometheusfamily.hpp"

#include "common/internal.hpp"

#include <string.h>
#include <algorithm>

namespace vekin::prometheus {

static constexpr const char *kOfCounter[] = {"", "_total", "_created"};
static constexpr const char *kOfSummary[] = {"", "_count", "_sum", "_created"};
static constexpr const char *kOfOthers[] = {""};

std::span<const char *const> get_reserved(Type type) {
  switch (type) {
  case Type::counter: return kOfCounter;
  case Type::summary: return kOfSummary;
  case Type::gauge:
  case Type::unknown: break;
  }
  return kOfOthers;
}

Family *family_new(char *name, Type type) {
  auto *family = g_new0(Family, 1);
  family->name = name;
  family->sample_name = type == Type::counter ? g_strconcat(name, "_total", nullptr) : name;
  family->type = type;
  family->samples = g_array_new(FALSE, FALSE, sizeof(Sample));
  return family;
}

void family_free(gpointer data) {
  auto *family = as<Family>(data);
  if (family->sample_name != family->name)
    g_free(family->sample_name);
  g_free(family->name);
  g_array_unref(family->samples);
  g_free(family);
}

static int compare_samples(gconstpointer a, gconstpointer b) {
  auto *left = static_cast<const Sample *>(a);
  auto *right = static_cast<const Sample *>(b);
  int order = strcmp(left->series->labels, right->series->labels);
  return order != 0 ? order : static_cast<int>(left->figure) - static_cast<int>(right->figure);
}

// Where a sample is, or belongs.
static guint find_sample(const Family *family, const Sample &sample) {
  auto *samples = reinterpret_cast<const Sample *>(family->samples->data);
  auto *place = std::lower_bound(
      samples, samples + family->samples->len, sample,
      [](const Sample &a, const Sample &b) { return compare_samples(&a, &b) < 0; });
  return static_cast<guint>(place - samples);
}

static bool comes_before(const Series *series, const Series *other) {
  int order = strcmp(series->name, other->name);
  return order < 0 || (order == 0 && g_strcmp0(series->unit, other->unit) < 0);
}

static void name_first(Family *family, const Sample &sample) {
  if (family->of && !comes_before(sample.series, family->of))
    return;
  family->of = sample.series;
  family->figure = sample.figure;
}

void family_append(Family *family, const Sample &sample, Type type) {
  if (family->type != type) {
    family->type = Type::unknown;
    family->is_mixed = true;
  }
  name_first(family, sample);
  g_array_append_val(family->samples, sample);
}

void family_sort(Family *family) {
  g_array_sort(family->samples, compare_samples);
}

void family_sort_last(Family *family) {
  auto sample = g_array_index(family->samples, Sample, family->samples->len - 1);
  g_array_set_size(family->samples, family->samples->len - 1);
  g_array_insert_val(family->samples, find_sample(family, sample), sample);
}

void family_remove(Family *family, const Sample &sample) {
  g_array_remove_index(family->samples, find_sample(family, sample));
  if (family->of != sample.series)
    return;
  family->of = nullptr;
  for (guint i = 0; i < family->samples->len; i++)
    name_first(family, g_array_index(family->samples, Sample, i));
}

}  // namespace vekin::prometheus
