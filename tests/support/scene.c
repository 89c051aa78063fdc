#include "scene.h"

#include "fakeclock.h"
#include "logcapture.h"
#include "recordingreporter.h"

Scene *scene_new(void) {
  Scene *scene = g_new(Scene, 1);
  scene->registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  scene->record = g_string_new(NULL);
  scene->reporter = recording_reporter_new("a", scene->record);
  return scene;
}

void scene_free(Scene *scene) {
  g_object_unref(scene->registry);
  g_object_unref(scene->reporter);
  g_string_free(scene->record, TRUE);
  g_free(scene);
}

void scene_report(Scene *scene) {
  vek_metric_registry_report(scene->registry, scene->reporter);
}

void report_to(gpointer metric, GSList *reporters) {
  VEK_METRIC_GET_CLASS(metric)->report(VEK_METRIC(metric), reporters);
}

void assert_invalid_cast(const char *from, const char *to) {
  g_autofree char *message = g_strdup_printf("invalid cast from '%s' to '%s'", from, to);
  assert_logged("GLib-GObject", G_LOG_LEVEL_WARNING, message);
}

GParamSpec *assert_construct_only_property(GType type, const char *name) {
  g_autoptr(GTypeClass) klass = g_type_class_ref(type);
  GParamSpec *pspec = g_object_class_find_property(G_OBJECT_CLASS(klass), name);
  g_assert_nonnull(pspec);
  g_assert_cmpstr(g_type_name(pspec->owner_type), ==, g_type_name(type));
  g_assert_cmpstr(g_param_spec_get_nick(pspec), ==, name);
  g_assert_cmpstr(g_param_spec_get_blurb(pspec), ==, name);
  g_assert_cmphex(pspec->flags, ==,
                  G_PARAM_READWRITE | G_PARAM_CONSTRUCT_ONLY | G_PARAM_STATIC_STRINGS);
  return pspec;
}

void assert_unknown_property_warns(gpointer object) {
  GObjectClass *klass = G_OBJECT_GET_CLASS(object);
  g_autoptr(GParamSpec) pspec = g_param_spec_ref_sink(
      g_param_spec_boolean("unknown", "unknown", "unknown", FALSE, G_PARAM_READWRITE));
  g_auto(GValue) value = G_VALUE_INIT;
  g_value_init(&value, G_TYPE_BOOLEAN);
  g_autofree char *pattern =
      g_strdup_printf("*: invalid property id 99 for \"unknown\" of type 'GParamBoolean' in '%s'",
                      G_OBJECT_TYPE_NAME(object));

  klass->set_property(object, 99, &value, pspec);
  assert_logged_like("VEK:metrics", G_LOG_LEVEL_WARNING, pattern);
  klass->get_property(object, 99, &value, pspec);
  assert_logged_like("VEK:metrics", G_LOG_LEVEL_WARNING, pattern);
}

static gint n_readers;
static guint n_overlaps;

/* Lets others run while a clock is read, so that they meet if no lock keeps them apart. */
static void count_overlap(void) {
  if (g_atomic_int_add(&n_readers, 1) > 0)
    g_atomic_int_inc(&n_overlaps);
  g_thread_yield();
  g_atomic_int_add(&n_readers, -1);
}

typedef struct {
  void (*work)(guint thread, gpointer data);
  gpointer data;
  GMutex *gate;
  gint *n_done;
  guint thread;
} Worker;

static gpointer run_worker(gpointer data) {
  const Worker *worker = data;
  g_mutex_lock(worker->gate);
  g_mutex_unlock(worker->gate);
  worker->work(worker->thread, worker->data);
  g_atomic_int_inc(worker->n_done);
  return NULL;
}

guint run_threads(guint n, void (*work)(guint thread, gpointer data),
                  void (*meanwhile)(gpointer data), gpointer data) {
  GMutex gate;
  g_mutex_init(&gate);
  gint n_done = 0;
  g_autofree Worker *workers = g_new(Worker, n);
  g_autofree GThread **threads = g_new(GThread *, n);

  n_overlaps = 0;
  fake_clock_set_hook(count_overlap);
  g_mutex_lock(&gate);
  for (guint i = 0; i < n; i++) {
    workers[i] = (Worker){work, data, &gate, &n_done, i};
    threads[i] = g_thread_new("worker", run_worker, &workers[i]);
  }
  g_mutex_unlock(&gate);

  while (g_atomic_int_get(&n_done) < (gint)n)
    meanwhile(data);
  for (guint i = 0; i < n; i++)
    g_thread_join(threads[i]);
  meanwhile(data);
  fake_clock_set_hook(NULL);
  g_mutex_clear(&gate);
  return n_overlaps;
}

typedef struct {
  Scene *scene;
  void (*work)(guint thread, gpointer metric);
  gpointer metric;
} Traffic;

static void use_metric(guint thread, gpointer data) {
  const Traffic *traffic = data;
  traffic->work(thread, traffic->metric);
}

static void report_meanwhile(gpointer data) {
  const Traffic *traffic = data;
  scene_report(traffic->scene);
}

guint scene_run_threads(Scene *scene, guint n, void (*work)(guint thread, gpointer metric),
                        gpointer metric) {
  Traffic traffic = {scene, work, metric};
  return run_threads(n, use_metric, report_meanwhile, &traffic);
}
