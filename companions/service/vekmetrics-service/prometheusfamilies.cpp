#include "prometheusfamilies.hpp"

#include "common/internal.hpp"
#include "prometheusrules.hpp"

#include <string.h>
#include <array>

namespace vekin::prometheus {

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

// What the formats keep for a family, as its name and these behind it.
constexpr const char *kOfCounter[] = {"", "_total", "_created"};
constexpr const char *kOfSummary[] = {"", "_count", "_sum", "_created"};
constexpr const char *kOfOthers[] = {""};

std::span<const char *const> get_reserved(Type type) {
  switch (type) {
  case Type::counter: return kOfCounter;
  case Type::summary: return kOfSummary;
  case Type::gauge:
  case Type::unknown: break;
  }
  return kOfOthers;
}

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

// The families so far.
struct Arrangement {
  GHashTable *reserved;  // from each name that the formats keep to its Family
  GHashTable *samples;   // from what identifies a sample to its Series
  GPtrArray *families;
  GString *scratch;
};

struct Place {
  char *name;
  Type type;
  Family *family;  // that it joins, or NULL
  char *sample;    // what identifies the sample in all formats
};

void free_family(gpointer data) {
  auto *family = as<Family>(data);
  if (family->sample_name != family->name)
    g_free(family->sample_name);
  g_free(family->name);
  g_array_unref(family->samples);
  for (char *header : family->headers)
    g_free(header);
  g_free(family);
}

int compare_samples(gconstpointer a, gconstpointer b) {
  auto *left = static_cast<const Sample *>(a);
  auto *right = static_cast<const Sample *>(b);
  int order = strcmp(left->series->labels, right->series->labels);
  return order != 0 ? order : static_cast<int>(left->figure) - static_cast<int>(right->figure);
}

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
  Place place = {.name = nullptr, .type = part.type, .family = nullptr, .sample = nullptr};
  if (part.type == Type::counter)
    strip_total(scratch);
  place.name = g_strdup(scratch->str);
  place.sample = g_strconcat(place.name, part.figure == Figure::quantiles ? "{q" : "{",
                             series->labels, nullptr);
  return place;
}

void clear_place(Place &place) {
  g_free(place.name);
  g_free(place.sample);
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

Family *add_family(Arrangement &arrangement, Place &place, const Policy &policy) {
  auto *family = g_new0(Family, 1);
  family->type = place.type;
  family->is_negative = g_hash_table_contains(policy.negative, place.name);
  family->samples = g_array_new(FALSE, FALSE, sizeof(Sample));
  for (const char *suffix : get_reserved(place.type))
    g_hash_table_insert(arrangement.reserved, g_strconcat(place.name, suffix, nullptr), family);
  family->name = g_steal_pointer(&place.name);
  family->sample_name =
      place.type == Type::counter ? g_strconcat(family->name, "_total", nullptr) : family->name;
  g_ptr_array_add(arrangement.families, family);
  return family;
}

bool comes_before(const Series *series, const Series *other) {
  int order = strcmp(series->name, other->name);
  return order < 0 || (order == 0 && g_strcmp0(series->unit, other->unit) < 0);
}

void take_place(Arrangement &arrangement, Series *series, Figure figure, Place &place,
                const Policy &policy) {
  auto *family = place.family ? place.family : add_family(arrangement, place, policy);
  if (family->type != place.type)
    family->type = Type::unknown;
  if (!family->of || comes_before(series, family->of)) {
    family->of = series;
    family->figure = figure;
  }
  Sample sample = {series, figure};
  g_array_append_val(family->samples, sample);
  g_hash_table_insert(arrangement.samples, g_steal_pointer(&place.sample), series);
}

void tell_left_out(const Series *series, const Series *other, const Policy &policy) {
  auto *key = g_bytes_new(series->key.bytes, series->key.size);
  if (g_hash_table_add(policy.told, key))
    vek_warning(
        "To Prometheus %s{%s} would be the same as %s{%s}, or of a family of the same "
        "name: it is left out",
        series->name, series->labels, other->name, other->labels);
}

// A metric is shown with all its parts or not at all.
void arrange(Arrangement &arrangement, Series *series, const Policy &policy, const char *prefix) {
  std::array<Place, kMaxParts> places;
  auto parts = get_parts(series, policy);
  const Series *in_the_way = nullptr;
  for (gsize i = 0; i < parts.size(); i++) {
    places[i] = find_place(arrangement, series, parts[i], prefix);
    if (!in_the_way)
      in_the_way = find_family(arrangement, places[i]);
  }
  for (gsize i = 0; i < parts.size(); i++) {
    if (!in_the_way)
      take_place(arrangement, series, parts[i].figure, places[i], policy);
    clear_place(places[i]);
  }
  if (in_the_way)
    tell_left_out(series, in_the_way, policy);
}

}  // namespace

GPtrArray *make_families(std::span<Series *const> own, GPtrArray *series, const Policy &policy) {
  Arrangement arrangement = {
      .reserved = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, nullptr),
      .samples = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, nullptr),
      .families = g_ptr_array_new_with_free_func(free_family),
      .scratch = g_string_new(nullptr),
  };
  for (auto *one : own)
    arrange(arrangement, one, policy, "");
  g_ptr_array_sort(series, compare_series);
  for (guint i = 0; i < series->len; i++)
    arrange(arrangement, as<Series>(series->pdata[i]), policy, policy.prefix);

  for (guint i = 0; i < arrangement.families->len; i++)
    g_array_sort(as<Family>(arrangement.families->pdata[i])->samples, compare_samples);
  g_hash_table_unref(arrangement.reserved);
  g_hash_table_unref(arrangement.samples);
  g_string_free(arrangement.scratch, TRUE);
  return arrangement.families;
}

int compare_names(gconstpointer a, gconstpointer b) {
  return strcmp((*static_cast<Family *const *>(a))->name, (*static_cast<Family *const *>(b))->name);
}

int compare_sample_names(gconstpointer a, gconstpointer b) {
  return strcmp((*static_cast<Family *const *>(a))->sample_name,
                (*static_cast<Family *const *>(b))->sample_name);
}

}  // namespace vekin::prometheus
