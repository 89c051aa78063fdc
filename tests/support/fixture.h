#pragma once

/* A program of tests. It has no main() and no list: TEST(what_the_test_says) { ... } is all that a
 * test needs. It is called "/program/what-the-test-says", after the program without "test-", and
 * fails if it leaves a log message behind.
 *
 * Each test finds a fixture, and a clock that stands at 1000 µs. */

#include "support/logcapture.h"

#include <vekmetrics-testing/clock.h>
#include <vekmetrics-testing/vekmetrics-testing.h>

G_BEGIN_DECLS

/* Begins a test, in place of the head of a function. */
#define TEST(function)                                                 \
  static void function(void);                                          \
  __attribute__((constructor)) static void register_##function(void) { \
    register_test(#function, function);                                \
  }                                                                    \
  static void function(void)

/* Begins what is a test for each row of a table, called by the name that is the row's first field.
 * The row is the parameter `data`. */
#define TEST_ROWS(function, table)                                           \
  static void function(gconstpointer data);                                  \
  __attribute__((constructor)) static void register_##function(void) {       \
    register_rows((table), G_N_ELEMENTS(table), sizeof(*(table)), function); \
  }                                                                          \
  static void function(gconstpointer data)

/* What these do before main(). */
void register_test(const char *name, void (*run)(void));
void register_rows(gconstpointer rows, gsize n, gsize size, void (*run)(gconstpointer row));

/* What each test has of its own. */
typedef struct {
  VekMetricRegistry *registry;
  GString *record;             /* what the reporter has got */
  VekMetricReporter *reporter; /* made by record_to(), labelled "a"; not registered */
} Fixture;
extern Fixture fixture;

/* Begins with a new one, as each turn of a loop may need it. */
void fixture_reset(void);

/* Runs one pass for the reporter. */
void fixture_report(void);

/* Makes a recorder with times that appends a line for each call to the record, after the label, as
 * in "a count requests 42 @1000". */
VekMetricReporter *record_to(GString *record, const char *label);

/* Compares the record so far with the lines and empties it. */
#define assert_recorded(record, lines)           \
  G_STMT_START {                                 \
    g_assert_cmpstr((record)->str, ==, (lines)); \
    g_string_truncate((record), 0);              \
  }                                              \
  G_STMT_END

/* Calls back at each call that a recorder gets, after it was recorded. */
#define on_recorded(recorder, callback, data) \
  g_signal_connect((recorder), "recorded", G_CALLBACK(callback), (data))

/* Lets the metric itself report to the reporters, or with an empty list to nobody, which no pass
 * of a registry does. */
void report_to(gpointer metric, GSList *reporters);

/* Takes GObject's warning of a cast to an unrelated type. */
void assert_invalid_cast(const char *from, const char *to);

/* Asserts that the type has the property of its own, for reading and for construction only, with
 * its name for nick and blurb; returns it for what is particular. */
GParamSpec *assert_construct_only_property(GType type, const char *name);

/* Disposes of the object. That must reach GObject's own part, which ends weak references. */
void run_dispose(gpointer object);

/* Asserts that the object warns of a property id that it does not know, in the log domain. */
void assert_unknown_property_warns_in(const char *domain, gpointer object);
#define assert_unknown_property_warns(object) \
  assert_unknown_property_warns_in("VEK:metrics", (object))

/* Counts how often each clock is read, from here to the end of the test. */
void count_readings(void);
guint get_real_readings(void);
guint get_monotonic_readings(void);

/* Runs work(0, data) to work(n - 1, data) on threads that begin together, calls meanwhile(data) in
 * this thread until they are all done, and once more after that.
 *
 * Returns how often a thread read a clock while another one was at it: never, if all read it under
 * one lock. */
guint run_threads(guint n, void (*work)(guint thread, gpointer data),
                  void (*meanwhile)(gpointer data), gpointer data);

/* The same for threads that use a metric, with passes meanwhile. */
guint fixture_run_threads(guint n, void (*work)(guint thread, gpointer metric), gpointer metric);

G_END_DECLS
