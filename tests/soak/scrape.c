#include "scrape.h"

#include "lives.h"

#include <string.h>

static guint count_occurrences(GBytes *bytes, const char *word) {
  gsize size;
  const char *text = g_bytes_get_data(bytes, &size);
  guint n = 0;
  for (const char *end = text + size;
       (text = memmem(text, (gsize)(end - text), word, strlen(word))); text += strlen(word))
    n++;
  return n;
}

/* The lines of a pass. */
static guint get_n_samples(void) {
  guint n_samples = 0;
  for (guint row = 0; row < n_lives; row++) {
    const Life *life = &lives[row];
    guint n_lines = life->kind == TIMELINE ? 0 : is_aggregated(life->kind) ? 7 : 1;
    for (guint nth = 0; nth < life->n_turns; nth++)
      n_samples += life->alone[nth] != NOTHING ? n_lines : 0;
  }
  return n_samples;
}

/* The metrics that the last passes have reported. */
static guint get_n_series(guint n_passes) {
  guint n_series = 0;
  for (guint row = 0; row < n_lives; row++) {
    const Life *life = &lives[row];
    guint last = life->n_turns;
    while (last > 0 && life->alone[last - 1] == NOTHING)
      last--;
    if (last > 0)
      n_series += life->n_names > 0 ? life->n_names : n_passes + last - 1;
  }
  return n_series;
}

void scrape(Served *served, guint n_passes) {
  g_autoptr(GBytes) text = NULL, passes = NULL;
  g_autofree char *answer = request(served, "GET /metrics HTTP/1.0|Host: localhost", &text);
  g_assert_cmpuint(count_occurrences(text, "\nmetric_"), ==, get_n_samples());
  g_autofree char *other = request(served, "GET /vars.json HTTP/1.0|Host: localhost", &passes);
  g_assert_cmpuint(count_occurrences(passes, "{\"name\":\"metric-"), ==, get_n_series(n_passes));

  /* The server remembers connections for up to a second after their end. */
  settle();
  if (find_source("vekmetrics-web connections"))
    run_source("vekmetrics-web connections");
}
