#include "viewer.hpp"

#include "chunks.hpp"
#include "common/internal.hpp"
#include "events.hpp"
#include "feeds.hpp"
#include "files.hpp"
#include "history.hpp"
#include "negotiation.hpp"
#include "readysource.hpp"

#include <string.h>

namespace vekin::web {

// What the page needs, and nothing else.
static constexpr const char *kHeaders[][2] = {
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; "
     "img-src 'self' data:; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    {"Referrer-Policy", "no-referrer"},
    {"X-Content-Type-Options", "nosniff"},
};

static constexpr const char *kPasses = "/vars.json";
static constexpr const char *kEvents = "/events";

struct Viewer {
  VekServicePrometheusReporter *reporter;
  VekWebHistory *history;
  Files *files;

  // While it serves.
  Waiting *waiting;  // borrowed
  Feeds *feeds;
  Events *events;
  GSource *source;  // ready after a pass
};

static void on_pass(gpointer data) {
  auto *self = as<Viewer>(data);
  guint64 pass = history_get_pass(self->history);
  char *event = g_strdup_printf("id: %" G_GUINT64_FORMAT "\ndata: {\"pass\": %" G_GUINT64_FORMAT
                                ", \"start\": \"%s\"}\n\n",
                                pass, pass, history_get_start(self->history));
  g_autoptr(GBytes) bytes = g_bytes_new_take(event, strlen(event));
  events_send(self->events, bytes);
}

Viewer *viewer_new(VekServicePrometheusReporter *reporter) {
  auto *self = g_new0(Viewer, 1);
  self->reporter = VEK_SERVICE_PROMETHEUS_REPORTER(g_object_ref(reporter));
  self->history = history_new();
  self->files = files_new();
  return self;
}

void viewer_free(Viewer *self) {
  g_clear_pointer(&self->source, ready_source_free);
  g_clear_pointer(&self->events, events_free);
  g_clear_pointer(&self->feeds, feeds_free);
  viewer_set_history(self, 0);
  files_free(self->files);
  g_object_unref(self->history);
  g_object_unref(self->reporter);
  g_free(self);
}

// Without passes to keep, passes cost nothing.
void viewer_set_history(Viewer *self, guint n_passes) {
  guint n_before = history_get_n_passes(self->history);
  history_set_n_passes(self->history, n_passes);
  auto *follower = VEK_METRIC_REPORTER(self->history);
  if (n_before == 0 && n_passes > 0)
    vek_service_prometheus_reporter_add_follower(self->reporter, follower);
  else if (n_passes == 0)
    vek_service_prometheus_reporter_remove_follower(self->reporter, follower);
}

void viewer_start(Viewer *self, Connections *connections, Waiting *waiting) {
  self->waiting = waiting;
  self->feeds = feeds_new();
  self->events = events_new(connections);
  self->source = ready_source_new("vekmetrics-web pass", G_PRIORITY_DEFAULT, on_pass, self);
  history_set_source(self->history, self->source);
}

bool viewer_has(Viewer *self, const char *path) {
  return history_get_n_passes(self->history) > 0 &&
         (g_str_equal(path, kPasses) || g_str_equal(path, kEvents) ||
          files_find(self->files, path));
}

static bool is_head(SoupServerMessage *message) {
  return g_str_equal(soup_server_message_get_method(message), "HEAD");
}

static bool wants_gzip(SoupServerMessage *message) {
  auto *request = soup_server_message_get_request_headers(message);
  return allows_gzip(soup_message_headers_get_list(request, "Accept-Encoding"));
}

static void serve_passes(Viewer *self, SoupServerMessage *message, const char *after) {
  guint64 pass = 0;
  if (after && !g_ascii_string_to_unsigned(after, 10, 0, G_MAXUINT64, &pass, nullptr)) {
    soup_server_message_set_status(message, SOUP_STATUS_BAD_REQUEST, nullptr);
    return;
  }
  auto *response = soup_server_message_get_response_headers(message);
  bool compressed = wants_gzip(message);
  if (compressed)
    soup_message_headers_replace(response, "Content-Encoding", "gzip");
  soup_message_headers_replace(response, "Content-Type", "application/json");
  soup_message_headers_replace(response, "Vary", "Accept-Encoding");
  if (is_head(message))
    chunks_announce(message);
  else
    feeds_add(self->feeds, message, extract_new(self->history, pass), compressed);
}

static void serve_events(Viewer *self, SoupServerMessage *message) {
  soup_message_headers_replace(soup_server_message_get_response_headers(message), "Content-Type",
                               "text/event-stream");
  if (is_head(message))
    chunks_announce(message);
  else
    events_add(self->events, message);
}

void viewer_serve(Viewer *self, SoupServerMessage *message, const char *path, GHashTable *query) {
  auto *response = soup_server_message_get_response_headers(message);
  for (auto &[name, value] : kHeaders)
    soup_message_headers_replace(response, name, value);

  if (auto *file = files_find(self->files, path)) {
    soup_message_headers_replace(response, "Cache-Control", "no-cache");
    waiting_add(self->waiting, message, {}, file, wants_gzip(message));
    return;
  }
  soup_message_headers_replace(response, "Cache-Control", "no-store");
  if (g_str_equal(path, kEvents))
    serve_events(self, message);
  else
    serve_passes(self, message, query ? as<char>(g_hash_table_lookup(query, "after")) : nullptr);
}

}  // namespace vekin::web
