#include "periodicpass.h"

GSource *find_timer(VekMetricRegistry *registry) {
  return g_main_context_find_source_by_user_data(NULL, registry);
}

void run_periodic_pass(VekMetricRegistry *registry) {
  GSource *timer = find_timer(registry);
  g_assert_nonnull(timer);
  g_source_set_ready_time(timer, 0);
  g_assert_true(g_main_context_iteration(NULL, FALSE));
}
