#include "retirement.hpp"

#include "common/internal.hpp"
#include "weakref.hpp"

static GMutex lock;            // guards the two below, and what their elements call retired
static GSList *retirements;    // of vekin::Retirement
static GHashTable *asked_for;  // from key to how many metrics are constructed and not yet met

static GQuark asked_for_quark;  // of a metric that is constructed and not yet met: its key

// As registries make it: dimensions first. Two metrics with one key are one metric to a registry.
static char *make_key(VekMetric *metric) {
  GString *key = g_string_sized_new(128);
  if (char **dimensions = vek_metric_get_dimensions(metric)) {
    vekin::append_joined(key, dimensions);
    g_string_append_c(key, '.');
  }
  g_string_append(key, vek_metric_get_name(metric));
  return g_string_free(key, FALSE);
}

static void revive(VekMetric *metric) {
  g_object_set(metric, "active", TRUE, nullptr);
}

void vekin::retirement_prepare() {
  asked_for_quark = g_quark_from_static_string("vek-service-asked-for");
  asked_for = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, nullptr);
}

void vekin::retirement_init(Retirement &retirement) {
  retirement = {
      .joined = g_ptr_array_new_with_free_func(g_object_unref),
      .leaving = g_ptr_array_new(),
      .retired = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, weak_ref_free),
  };

  MutexLock held(lock);
  g_atomic_pointer_set(&retirements, g_slist_prepend(retirements, &retirement));
}

void vekin::retirement_clear(Retirement &retirement) {
  {
    MutexLock held(lock);
    g_atomic_pointer_set(&retirements, g_slist_remove(retirements, &retirement));
  }
  g_ptr_array_unref(retirement.joined);
  g_ptr_array_unref(retirement.leaving);
  g_hash_table_unref(retirement.retired);
}

static guint get_n_asked_for(const char *key) {
  return GPOINTER_TO_UINT(g_hash_table_lookup(asked_for, key));
}

static void forget_key(gpointer data) {
  g_autofree auto *key = static_cast<char *>(data);

  vekin::MutexLock held(lock);
  if (guint n = get_n_asked_for(key); n > 1)
    g_hash_table_insert(asked_for, g_strdup(key), GUINT_TO_POINTER(n - 1));
  else
    g_hash_table_remove(asked_for, key);
}

void vekin::retirement_note_made(VekMetric *metric) {
  if (!g_atomic_pointer_get(&retirements) || !vek_metric_get_name(metric))
    return;

  char *key = make_key(metric);
  g_autoslist(GObject) retired = nullptr;
  {
    MutexLock held(lock);
    g_hash_table_insert(asked_for, g_strdup(key), GUINT_TO_POINTER(get_n_asked_for(key) + 1));
    for (auto *retirement : Each<Retirement>(retirements))
      if (auto *weak_ref = g_hash_table_lookup(retirement->retired, key))
        if (auto *found = weak_ref_get(weak_ref))
          retired = g_slist_prepend(retired, found);
  }
  g_object_set_qdata_full(as<GObject>(metric), asked_for_quark, key, forget_key);
  for (auto *found : Each<VekMetric>(retired))
    revive(found);
}

void vekin::retirement_note_met(VekMetric *metric) {
  g_object_set_qdata(as<GObject>(metric), asked_for_quark, nullptr);
}

void vekin::retirement_join(Retirement &retirement, VekMetric *metric, bool may_retire) {
  if (!vek_metric_get_name(metric))
    return;  // it was disposed, and nobody can ask for it
  if (may_retire && g_atomic_int_get(&as<GObject>(metric)->ref_count) == 1)
    g_ptr_array_add(retirement.leaving, metric);
  else
    g_ptr_array_add(retirement.joined, g_object_ref(metric));
}

void vekin::retirement_end_pass(Retirement &retirement) {
  g_autoptr(GPtrArray) wanted = g_ptr_array_new();
  {
    MutexLock held(lock);
    g_hash_table_remove_all(retirement.retired);
    for (guint i = 0; i < retirement.leaving->len; i++) {
      auto *metric = as<VekMetric>(retirement.leaving->pdata[i]);
      g_autofree char *key = make_key(metric);
      if (get_n_asked_for(key) > 0) {
        g_ptr_array_add(wanted, metric);
      } else {
        g_hash_table_insert(retirement.retired, g_steal_pointer(&key), weak_ref_new(metric));
      }
    }
  }
  for (guint i = 0; i < wanted->len; i++)
    revive(as<VekMetric>(wanted->pdata[i]));
  g_ptr_array_set_size(retirement.leaving, 0);
  g_ptr_array_set_size(retirement.joined, 0);
}
