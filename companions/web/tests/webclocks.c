/* Tests of a VekWebServer while the wall clock jumps in either direction. */

#include <string.h>

#include "served.h"

#define SECONDS(n) (G_GINT64_CONSTANT(n) * G_USEC_PER_SEC)

typedef struct {
  const char *name;
  gint64 now;
  const char *times; /* of a pass before the jump, one with it, and one after it was undone */
} Jump;

static const Jump jumps[] = {
    {"an-hour-forward", SECONDS(1700003600), "1700000000,1700003600,1700003660"},
    {"an-hour-back", SECONDS(1699996400), "1700000000,1700000060,1700000120"},
    {"ten-years-forward", SECONDS(2015576000), "1700000000,2015576000,2015576060"},
    {"ten-years-back", SECONDS(1384424000), "1700000000,1700000060,1700000120"},
    {"before-the-epoch", SECONDS(-90), "1700000000,1700000060,1700000120"},
    {"to-the-year-1", SECONDS(-62135596800), "1700000000,1700000060,1700000120"},
    {"to-the-year-10000", SECONDS(253402300800), "1700000000,253402300800,253402300860"},
    {"to-the-last-microsecond", G_MAXINT64, "1700000000,9223372036854.775807,9223372036854.775807"},
};

TEST_ROWS(each_pass_is_told_once_and_none_before_another, jumps) {
  const Jump *jump = data;
  gint64 times[] = {SECONDS(1700000000), jump->now, SECONDS(1700000120)};
  g_auto(Served) served = set_up();
  listen_locally(&served);
  g_autoptr(GSocket) stream = send_to(&served, "/events");
  g_autoptr(VekMetricTimeline) timeline =
      vek_metric_registry_timeline_new(fixture.registry, "work");
  g_free(receive(stream));

  for (gsize i = 0; i < G_N_ELEMENTS(times); i++) {
    vek_testing_clock_set(times[i], SECONDS(5000) + (gint64)i * SECONDS(60));
    vek_metric_timeline_add_range(timeline, (gint)i, times[i], times[i]);
    vek_metric_registry_report(fixture.registry, VEK_METRIC_REPORTER(served.reporter));
    g_autofree char *event = receive(stream);
    g_autofree char *expected = g_strdup_printf("id: %zu\ndata: ", i + 1);
    const char *found = strstr(event, "id: ");
    g_assert_nonnull(found);
    g_assert_true(g_str_has_prefix(found, expected));
    g_assert_null(strstr(found + 1, "id: "));
    run_source("vekmetrics-web connections");
    g_assert_false(has_ended(stream));
  }

  g_autoptr(GBytes) body = NULL;
  g_autofree char *answer = request(&served, "GET /vars.json HTTP/1.0|Host: localhost", &body);
  g_autofree char *text = g_strndup(g_bytes_get_data(body, NULL), g_bytes_get_size(body));
  g_autofree char *expected = g_strdup_printf("\"times\":[[%s]]", jump->times);
  g_test_message("%s", text);
  g_assert_nonnull(strstr(text, expected));
  /* Each range ended when its pass was. */
  g_assert_nonnull(strstr(text, "{\"name\":\"work\",\"dimensions\":[],\"clock\":\"wall\","));
}
