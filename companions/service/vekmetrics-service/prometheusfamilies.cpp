#include "prometheusfamilies.hpp"

#include "common/internal.hpp"
#include "prometheusrules.hpp"

#include <string.h>
#include <algorithm>

namespace vekin::prometheus {

struct Arrangement {
  const Policy *policy;
  GHashTable *reserved;    // from each name that the formats keep to its Family
  GHashTable *samples;     // from what identifies a sample to its Series
  GHashTable *in_the_way;  // of those Series for which others are left out
  GHashTable *wanted;      // of the names of the families that those others would be in
  GPtrArray *families[2];  // in the order of each format
  GString *scratch;
};

namespace {

// A family that a metric takes part in.
struct Part {
  Figure figure;
  Type type;
  const char *suffix;
};

constexpr Part kCount[] = {{Figure::count, Type::unknown, ""}};
constexpr Part kMonotonicCount[] = {{Figure::count, Type::counter, ""}};
constexpr Part kValue[] = {{Figure::value, Type::gauge, ""}};
constexpr Part kAggregated[] = {
    {Figure::quantiles, Type::summary, ""},       {Figure::average, Type::gauge, "_avg"},
    {Figure::min, Type::gauge, "_min"},           {Figure::max, Type::gauge, "_max"},
    {Figure::n_samples, Type::gauge, "_samples"},
};
constexpr gsize kMaxParts = std::size(kAggregated);

std::span<const Part> get_parts(const Series *series, const Policy &policy) {
  switch (series->kind) {
  case Kind::count:
    if (g_hash_table_contains(policy.monotonic, series->name))
      return kMonotonicCount;
    return kCount;
  case Kind::value: return kValue;
  case Kind::aggregated: break;
  }
  return kAggregated;
}

struct Place {
  Figure figure;
  Type type;
  char *name;
  Family *family;  // that it joins, or NULL
  char *sample;    // what identifies the sample in all formats
};

// The orders of the two formats: OpenMetrics names a counter without its "_total".
constexpr char *Family::*kOrders[] = {&Family::name, &Family::sample_name};

template <int format>
int compare_families(gconstpointer a, gconstpointer b) {
  return strcmp((*static_cast<Family *const *>(a))->*kOrders[format],
                (*static_cast<Family *const *>(b))->*kOrders[format]);
}

constexpr GCompareFunc kCompareFamilies[] = {compare_families<0>, compare_families<1>};

int compare_series(gconstpointer a, gconstpointer b) {
  return compare_keys((*static_cast<Series *const *>(a))->key,
                      (*static_cast<Series *const *>(b))->key);
}

// "_total" is part of a counter's samples and not of its family's name.
void strip_total(GString *name) {
  if (name->len > strlen("_total") && g_str_has_suffix(name->str, "_total"))
    g_string_truncate(name, name->len - strlen("_total"));
}

Place find_place(Arrangement &arrangement, const Series *series, const Part &part,
                 const char *prefix) {
  auto *scratch = arrangement.scratch;
  g_string_truncate(scratch, 0);
  append_name(scratch, prefix, series->name);
  g_string_append(scratch, part.suffix);
  if (part.type == Type::counter)
    strip_total(scratch);
  bool is_quantiles = part.figure == Figure::quantiles;
  return {
      .figure = part.figure,
      .type = part.type,
      .name = g_strdup(scratch->str),
      .family = nullptr,
      .sample =
          g_strconcat(scratch->str, is_quantiles ? "{quantile," : "{", series->labels, nullptr),
  };
}

// Finds the family of a place. Returns what is in the way, or NULL.
const Series *find_family(Arrangement &arrangement, Place &place) {
  auto *same = as<Family>(g_hash_table_lookup(arrangement.reserved, place.name));
  if (same && g_str_equal(same->name, place.name) &&
      (same->type == Type::counter) == (place.type == Type::counter)) {
    place.family = same;
    return as<Series>(g_hash_table_lookup(arrangement.samples, place.sample));
  }
  for (const char *suffix : get_reserved(place.type)) {
    g_string_assign(arrangement.scratch, place.name);
    g_string_append(arrangement.scratch, suffix);
    if (auto *other =
            as<Family>(g_hash_table_lookup(arrangement.reserved, arrangement.scratch->str)))
      return other->of;
  }
  return nullptr;
}

Family *add_family(Arrangement &arrangement, Place &place) {
  auto *family = family_new(g_steal_pointer(&place.name), place.type);
  family->is_negative = g_hash_table_contains(arrangement.policy->negative, family->name);
  for (const char *suffix : get_reserved(family->type))
    g_hash_table_insert(arrangement.reserved, g_strconcat(family->name, suffix, nullptr), family);
  for (auto *families : arrangement.families)
    g_ptr_array_add(families, family);
  return family;
}

// Where a family is, or belongs, in the order of a format.
guint find_index(GPtrArray *families, Family *family, GCompareFunc compare) {
  auto *place = std::lower_bound(families->pdata, families->pdata + families->len, family,
                                 [=](gpointer a, gpointer b) { return compare(&a, &b) < 0; });
  return static_cast<guint>(place - families->pdata);
}

// The samples and the families are sorted only once all are there.
void take_place(Arrangement &arrangement, const Series *series, Place &place) {
  auto *family = place.family ? place.family : add_family(arrangement, place);
  family_append(family, {series, place.figure}, place.type);
  g_hash_table_insert(arrangement.samples, g_steal_pointer(&place.sample),
                      const_cast<Series *>(series));
}

// The places of a metric's parts.
struct Places {
  Place places[kMaxParts];
  std::span<Place> all;      // those that the metric has
  const Series *in_the_way;  // of any of them, or NULL

  Places(Arrangement &arrangement, const Series *series, const char *prefix)
      : places{}, in_the_way(nullptr) {
    auto parts = get_parts(series, *arrangement.policy);
    all = std::span(places).first(parts.size());
    for (gsize i = 0; i < parts.size(); i++) {
      all[i] = find_place(arrangement, series, parts[i], prefix);
      auto *other = find_family(arrangement, all[i]);
      if (!in_the_way)
        in_the_way = other;
    }
  }
  ~Places() {
    for (auto &place : all) {
      g_free(place.name);
      g_free(place.sample);
    }
  }
  Places(const Places &) = delete;
  Places &operator=(const Places &) = delete;
};

void leave_out(Arrangement &arrangement, const Series *series, Places &found) {
  auto *other = found.in_the_way;
  g_hash_table_add(arrangement.in_the_way, const_cast<Series *>(other));
  for (auto &place : found.all)
    g_hash_table_add(arrangement.wanted, g_steal_pointer(&place.name));
  if (g_hash_table_add(arrangement.policy->told, g_bytes_new(series->key.bytes, series->key.size)))
    vek_warning(
        "To Prometheus %s{%s} would be the same as %s{%s}, or of a family of the same "
        "name: it is left out",
        series->name, series->labels, other->name, other->labels);
}

// A metric is shown with all its parts or not at all.
void arrange(Arrangement &arrangement, const Series *series, const char *prefix) {
  Places found(arrangement, series, prefix);
  if (found.in_the_way) {
    leave_out(arrangement, series, found);
    return;
  }
  for (auto &place : found.all)
    take_place(arrangement, series, place);
}

void move_last_family(Arrangement &arrangement) {
  for (int format = 0; format < 2; format++) {
    auto *families = arrangement.families[format];
    auto *family = as<Family>(g_ptr_array_steal_index(families, families->len - 1));
    guint index = find_index(families, family, kCompareFamilies[format]);
    g_ptr_array_insert(families, static_cast<gint>(index), family);
  }
}

void remove_family(Arrangement &arrangement, Family *family) {
  for (const char *suffix : get_reserved(family->type)) {
    g_string_assign(arrangement.scratch, family->name);
    g_string_append(arrangement.scratch, suffix);
    g_hash_table_remove(arrangement.reserved, arrangement.scratch->str);
  }
  for (int format = 1; format >= 0; format--)  // the first array frees it
    g_ptr_array_remove_index(
        arrangement.families[format],
        find_index(arrangement.families[format], family, kCompareFamilies[format]));
}

}  // namespace

Arrangement *arrangement_new(std::span<Series *const> own, GPtrArray *series,
                             const Policy &policy) {
  auto *arrangement = g_new(Arrangement, 1);
  *arrangement = {
      .policy = &policy,
      .reserved = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, nullptr),
      .samples = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, nullptr),
      .in_the_way = g_hash_table_new(nullptr, nullptr),
      .wanted = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, nullptr),
      .families = {g_ptr_array_new_with_free_func(family_free), g_ptr_array_new()},
      .scratch = g_string_new(nullptr),
  };
  for (auto *one : own)
    arrange(*arrangement, one, "");
  g_ptr_array_sort(series, compare_series);
  for (guint i = 0; i < series->len; i++)
    arrange(*arrangement, as<Series>(series->pdata[i]), policy.prefix);

  auto *families = arrangement->families[0];
  for (auto *family : std::span(families->pdata, families->len))
    family_sort(as<Family>(family));
  for (int format = 0; format < 2; format++)
    g_ptr_array_sort(arrangement->families[format], kCompareFamilies[format]);
  return arrangement;
}

void arrangement_free(Arrangement *arrangement) {
  g_hash_table_unref(arrangement->reserved);
  g_hash_table_unref(arrangement->samples);
  g_hash_table_unref(arrangement->in_the_way);
  g_hash_table_unref(arrangement->wanted);
  for (auto *families : arrangement->families)
    g_ptr_array_unref(families);
  g_string_free(arrangement->scratch, TRUE);
  g_free(arrangement);
}

bool arrangement_add(Arrangement *arrangement, const Series *series) {
  Places found(*arrangement, series, arrangement->policy->prefix);
  if (found.in_the_way) {
    if (compare_keys(found.in_the_way->key, series->key) > 0)
      return false;
    leave_out(*arrangement, series, found);
    return true;
  }
  // One that was left out may join the family now, and what a family of several types keeps depends
  // on the first.
  for (auto &place : found.all)
    if (g_hash_table_contains(arrangement->wanted, place.name) ||
        (place.family && (place.family->is_mixed || place.family->type != place.type)))
      return false;
  for (auto &place : found.all) {
    auto *joined = place.family;
    take_place(*arrangement, series, place);
    if (joined)
      family_sort_last(joined);
    else
      move_last_family(*arrangement);
  }
  return true;
}

bool arrangement_remove(Arrangement *arrangement, const Series *series) {
  if (g_hash_table_contains(arrangement->in_the_way, series))
    return false;
  Places found(*arrangement, series, arrangement->policy->prefix);
  if (g_hash_table_lookup(arrangement->samples, found.all[0].sample) != series)
    return true;  // it was left out
  for (auto &place : found.all)
    if (place.family->is_mixed)
      return false;
  for (auto &place : found.all) {
    g_hash_table_remove(arrangement->samples, place.sample);
    family_remove(place.family, {series, place.figure});
    if (place.family->samples->len == 0)
      remove_family(*arrangement, place.family);
  }
  return true;
}

GPtrArray *arrangement_get_families(const Arrangement *arrangement,
                                    VekServicePrometheusFormat format) {
  return arrangement->families[format];
}

}  // namespace vekin::prometheus
