#include "fakeclock.h"

static gint64 real_now = G_GINT64_CONSTANT(1000000000000000);
static gint64 monotonic_now = G_GINT64_CONSTANT(1000000000);
static gint64 step;
static guint real_readings;
static guint monotonic_readings;
static void (*hook)(void);
static guint timeout_seconds;
static guint n_timeouts;

void fake_clock_set(gint64 real_time, gint64 monotonic_time) {
  __atomic_store_n(&real_now, real_time, __ATOMIC_RELAXED);
  __atomic_store_n(&monotonic_now, monotonic_time, __ATOMIC_RELAXED);
  __atomic_store_n(&real_readings, 0, __ATOMIC_RELAXED);
  __atomic_store_n(&monotonic_readings, 0, __ATOMIC_RELAXED);
  step = 0;
}

void fake_clock_advance(gint64 microseconds) {
  __atomic_fetch_add(&real_now, microseconds, __ATOMIC_RELAXED);
  __atomic_fetch_add(&monotonic_now, microseconds, __ATOMIC_RELAXED);
}

void fake_clock_set_step(gint64 microseconds) {
  step = microseconds;
}

guint fake_clock_get_real_readings(void) {
  return __atomic_load_n(&real_readings, __ATOMIC_RELAXED);
}

guint fake_clock_get_monotonic_readings(void) {
  return __atomic_load_n(&monotonic_readings, __ATOMIC_RELAXED);
}

void fake_clock_set_hook(void (*new_hook)(void)) {
  __atomic_store_n(&hook, new_hook, __ATOMIC_RELEASE);
}

guint fake_clock_get_timeout_seconds(void) {
  return timeout_seconds;
}

guint fake_clock_get_n_timeouts(void) {
  return n_timeouts;
}

static gint64 read_clock(gint64 *now, guint *readings) {
  __atomic_fetch_add(readings, 1, __ATOMIC_RELAXED);
  gint64 reading = __atomic_fetch_add(now, step, __ATOMIC_RELAXED);
  void (*called)(void) = __atomic_load_n(&hook, __ATOMIC_ACQUIRE);
  if (called)
    called();
  return reading;
}

gint64 g_get_real_time(void) {
  return read_clock(&real_now, &real_readings);
}

gint64 g_get_monotonic_time(void) {
  return read_clock(&monotonic_now, &monotonic_readings);
}

guint g_timeout_add_seconds(guint interval, GSourceFunc function, gpointer data) {
  timeout_seconds = interval;
  n_timeouts++;
  return g_timeout_add_seconds_full(G_PRIORITY_DEFAULT, interval, function, data, NULL);
}
