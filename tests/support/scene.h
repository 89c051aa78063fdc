#pragma once

/* What the tests of every metric kind need: a registry, a reporter that writes down what it gets,
 * and the checks that repeat from kind to kind. */

#include <vekmetrics/vekmetrics.h>

G_BEGIN_DECLS

typedef struct {
  VekMetricRegistry *registry;
  GString *record;
  VekMetricReporter *reporter; /* a recording reporter labelled "a"; not registered */
} Scene;

Scene *scene_new(void);
void scene_free(Scene *scene);
G_DEFINE_AUTOPTR_CLEANUP_FUNC(Scene, scene_free)

/* Runs one pass for the reporter. */
void scene_report(Scene *scene);

/* Lets the metric itself report to the reporters, or with an empty list to nobody, which no pass
 * of a registry does. */
void report_to(gpointer metric, GSList *reporters);

/* Takes GObject's warning of a cast to an unrelated type. */
void assert_invalid_cast(const char *from, const char *to);

/* Asserts that the type has the property of its own, for reading and for construction only, with
 * its name for nick and blurb; returns it for what is particular. */
GParamSpec *assert_construct_only_property(GType type, const char *name);

/* Asserts that the object warns of a property id that it does not know. */
void assert_unknown_property_warns(gpointer object);

/* Runs work(0, data) to work(n - 1, data) on threads that begin together, calls meanwhile(data) in
 * this thread until they are all done, and once more after that.
 *
 * Returns how often a thread read a clock while another one was at it: never, if all read it under
 * one lock. */
guint run_threads(guint n, void (*work)(guint thread, gpointer data),
                  void (*meanwhile)(gpointer data), gpointer data);

/* The same for threads that use a metric, with passes meanwhile. */
guint scene_run_threads(Scene *scene, guint n, void (*work)(guint thread, gpointer metric),
                        gpointer metric);

G_END_DECLS
