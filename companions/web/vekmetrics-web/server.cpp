#include "server.h"

#include "common/internal.hpp"
#include "connections.hpp"
#include "history.hpp"
#include "listening.hpp"
#include "negotiation.hpp"
#include "page.hpp"
#include "viewer.hpp"
#include "waiting.hpp"

#include <glib/gstdio.h>
#include <string.h>

using namespace vekin::web;

static constexpr const char *kContentTypes[] = {
    "application/openmetrics-text; version=1.0.0; charset=utf-8",
    "text/plain; version=0.0.4; charset=utf-8",
};

struct _VekWebServer {
  GObject parent_instance;

  VekServicePrometheusReporter *reporter;  // never changes
  guint history;                           // passes
  SoupServer *soup_server;                 // NULL until it listens
  Connections *connections;                // of that one
  guint port;                              // the first that it listens on
  GPtrArray *listeners;                    // of Listener
  GPtrArray *socket_files;
  GPtrArray *attached;  // of Attached
  GHashTable *hosts;    // names that are allowed, in lower case
  Page *pages[2];       // the last text of each format; NULL before it is asked for
  Waiting *waiting;
  Viewer *viewer;
};
static_assert(vekin::ZeroFillable<VekWebServer>);

enum : guint { PROP_HISTORY = 1, PROP_REPORTER, N_PROPERTIES };
static GParamSpec *properties[N_PROPERTIES];

G_DEFINE_FINAL_TYPE(VekWebServer, vek_web_server, G_TYPE_OBJECT)

namespace {

// A path of a server that is served.
struct Attached {
  SoupServer *soup_server;
  char *path;
  VekWebServer *server;
  bool is_replaced;  // by another handler
};

}  // namespace

static void free_attached(gpointer data) {
  auto *attached = vekin::as<Attached>(data);
  if (!attached->is_replaced)
    soup_server_remove_handler(attached->soup_server, attached->path);
  g_object_unref(attached->soup_server);
  g_free(attached->path);
  g_free(attached);
}

static void answer(SoupServerMessage *message, guint status, const char *sentence) {
  soup_server_message_set_status(message, status, nullptr);
  soup_server_message_set_response(message, "text/plain; charset=utf-8", SOUP_MEMORY_COPY, sentence,
                                   strlen(sentence));
}

static bool is_host_allowed(VekWebServer *self, SoupServerMessage *message) {
  auto *address = soup_server_message_get_local_address(message);
  if (!G_IS_INET_SOCKET_ADDRESS(address) ||
      !g_inet_address_get_is_loopback(
          g_inet_socket_address_get_address(G_INET_SOCKET_ADDRESS(address))))
    return true;
  g_autofree char *name = get_host_name(
      soup_message_headers_get_one(soup_server_message_get_request_headers(message), "Host"));
  return name && (is_local_name(name) || g_hash_table_contains(self->hosts, name));
}

// The page of the last pass, or NULL before the first.
static Page *get_page(VekWebServer *self, VekServicePrometheusFormat format) {
  g_autoptr(GBytes) text = vek_service_prometheus_reporter_get_bytes(self->reporter, format);
  if (!text)
    return nullptr;
  auto *&page = self->pages[format];
  if (!page || page_get_text(page) != text) {
    g_clear_pointer(&page, page_unref);
    page = page_new(text, kContentTypes[format]);
  }
  return page;
}

static bool work_on(Request &request, gpointer data) {
  auto *self = vekin::as<VekWebServer>(data);
  if (!request.page) {
    if (!vek_service_prometheus_reporter_prepare_text(self->reporter, request.format))
      return false;
    auto *page = get_page(self, request.format);
    if (!page) {
      answer(request.message, SOUP_STATUS_SERVICE_UNAVAILABLE,
             "There is no text before the first report pass.\n");
      return true;
    }
    request.page = page_ref(page);
  }
  if (!page_work(request.page, request.is_compressed))
    return false;
  page_send(request.page, request.message, request.is_compressed);
  return true;
}

static void serve_text(VekWebServer *self, SoupServerMessage *message) {
  auto *headers = soup_server_message_get_request_headers(message);
  waiting_add(self->waiting, message,
              choose_format(soup_message_headers_get_list(headers, "Accept")), nullptr,
              allows_gzip(soup_message_headers_get_list(headers, "Accept-Encoding")));
}

static bool is_text(VekWebServer *self, SoupServer *soup_server, const char *path) {
  if (soup_server == self->soup_server && g_str_equal(path, "/metrics"))
    return true;
  for (guint i = 0; i < self->attached->len; i++) {
    auto *attached = vekin::as<Attached>(self->attached->pdata[i]);
    if (attached->soup_server == soup_server && g_str_equal(attached->path, path))
      return true;
  }
  return false;
}

static void on_request(SoupServer *soup_server, SoupServerMessage *message, const char *path,
                       GHashTable *query, gpointer data) {
  auto *self = vekin::as<VekWebServer>(data);
  if (soup_server == self->soup_server)
    connection_end_with_answer(message);  // again: "100 Continue" has cleared the headers
  bool serves_text = is_text(self, soup_server, path);
  bool serves_page = soup_server == self->soup_server && viewer_has(self->viewer, path);
  const char *method = soup_server_message_get_method(message);
  if (!is_host_allowed(self, message)) {
    answer(message, SOUP_STATUS_FORBIDDEN, "The Host of the request is not allowed here.\n");
  } else if (!serves_text && !serves_page) {
    answer(message, SOUP_STATUS_NOT_FOUND, "The metrics are at /metrics.\n");
  } else if (!g_str_equal(method, "GET") && !g_str_equal(method, "HEAD")) {
    soup_message_headers_replace(soup_server_message_get_response_headers(message), "Allow",
                                 "GET, HEAD");
    answer(message, SOUP_STATUS_METHOD_NOT_ALLOWED, "The metrics can be got, and nothing else.\n");
  } else if (serves_text) {
    serve_text(self, message);
  } else {
    viewer_serve(self->viewer, message, path, query);
  }
}

// Bodies are of no use, and are passed over.
static void on_headers(SoupServer *, SoupServerMessage *message, const char *, GHashTable *,
                       gpointer) {
  soup_message_body_set_accumulate(soup_server_message_get_request_body(message), FALSE);
}

// One that is not small is not even read. A length of 2^63 or more is negative.
static void on_own_headers(SoupServer *, SoupServerMessage *message, const char *, GHashTable *,
                           gpointer) {
  soup_message_body_set_accumulate(soup_server_message_get_request_body(message), FALSE);
  auto *headers = soup_server_message_get_request_headers(message);
  if (soup_message_headers_get_encoding(headers) == SOUP_ENCODING_CHUNKED ||
      static_cast<guint64>(soup_message_headers_get_content_length(headers)) > kMaxBody)
    connection_shut_down(connection_get_socket(message));
}

static void on_attached_request(SoupServer *soup_server, SoupServerMessage *message,
                                const char *path, GHashTable *query, gpointer attached) {
  on_request(soup_server, message, path, query, vekin::as<Attached>(attached)->server);
}

static void on_replaced(gpointer attached) {
  vekin::as<Attached>(attached)->is_replaced = true;
}

static SoupServer *get_soup_server(VekWebServer *self) {
  if (!self->soup_server) {
    self->soup_server = soup_server_new(nullptr, nullptr);
    self->connections = connections_new(self->soup_server);
    viewer_start(self->viewer, self->connections, self->waiting);
    soup_server_add_early_handler(self->soup_server, nullptr, on_own_headers, nullptr, nullptr);
    soup_server_add_handler(self->soup_server, nullptr, on_request, self, nullptr);
  }
  return self->soup_server;
}

static void listen(VekWebServer *self, GSocket *socket) {
  g_ptr_array_add(self->listeners, listener_new(socket, get_soup_server(self)));
}

static void vek_web_server_set_property(GObject *object, guint id, const GValue *value,
                                        GParamSpec *pspec) {
  auto *self = VEK_WEB_SERVER(object);
  switch (id) {
  case PROP_HISTORY:
    self->history = g_value_get_uint(value);
    if (self->viewer)
      viewer_set_history(self->viewer, self->history);
    break;
  case PROP_REPORTER:
    self->reporter = VEK_SERVICE_PROMETHEUS_REPORTER(g_value_dup_object(value));
    break;
  default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void vek_web_server_get_property(GObject *object, guint id, GValue *value,
                                        GParamSpec *pspec) {
  auto *self = VEK_WEB_SERVER(object);
  switch (id) {
  case PROP_HISTORY: g_value_set_uint(value, self->history); break;
  case PROP_REPORTER: g_value_set_object(value, self->reporter); break;
  default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void vek_web_server_dispose(GObject *object) {
  auto *self = VEK_WEB_SERVER(object);
  g_ptr_array_set_size(self->socket_files, 0);  // before others find them abandoned
  g_ptr_array_set_size(self->listeners, 0);
  g_clear_pointer(&self->viewer, viewer_free);
  g_clear_pointer(&self->connections, connections_free);
  if (self->soup_server)
    soup_server_disconnect(self->soup_server);
  g_clear_pointer(&self->waiting, waiting_free);
  g_clear_object(&self->soup_server);
  g_ptr_array_set_size(self->attached, 0);
  for (auto &page : self->pages)
    g_clear_pointer(&page, page_unref);
  g_clear_object(&self->reporter);

  G_OBJECT_CLASS(vek_web_server_parent_class)->dispose(object);
}

static void vek_web_server_finalize(GObject *object) {
  auto *self = VEK_WEB_SERVER(object);
  g_ptr_array_unref(self->attached);
  g_ptr_array_unref(self->listeners);
  g_ptr_array_unref(self->socket_files);
  g_hash_table_unref(self->hosts);

  G_OBJECT_CLASS(vek_web_server_parent_class)->finalize(object);
}

static void vek_web_server_constructed(GObject *object) {
  G_OBJECT_CLASS(vek_web_server_parent_class)->constructed(object);

  auto *self = VEK_WEB_SERVER(object);
  if (!self->reporter)
    self->reporter = vek_service_prometheus_reporter_new();
  self->viewer = viewer_new(self->reporter);
  viewer_set_history(self->viewer, self->history);
}

static void vek_web_server_class_init(VekWebServerClass *klass) {
  auto *object_class = G_OBJECT_CLASS(klass);
  object_class->set_property = vek_web_server_set_property;
  object_class->get_property = vek_web_server_get_property;
  object_class->dispose = vek_web_server_dispose;
  object_class->finalize = vek_web_server_finalize;
  object_class->constructed = vek_web_server_constructed;

  properties[PROP_HISTORY] = vekin::property<g_param_spec_uint, vekin::kConstruct>(
      "history", 0, kMaxPasses, kDefaultPasses);
  properties[PROP_REPORTER] =
      vekin::property<g_param_spec_object>("reporter", VEK_SERVICE_TYPE_PROMETHEUS_REPORTER);
  g_object_class_install_properties(object_class, N_PROPERTIES, properties);
}

static void vek_web_server_init(VekWebServer *self) {
  self->listeners = g_ptr_array_new_with_free_func(listener_free);
  self->socket_files = g_ptr_array_new_with_free_func(socket_file_free);
  self->attached = g_ptr_array_new_with_free_func(free_attached);
  self->hosts = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, nullptr);
  self->waiting = waiting_new(work_on, self);
}

VekWebServer *vek_web_server_new(VekServicePrometheusReporter *reporter) {
  vek_return_val_if_fail(VEK_SERVICE_IS_PROMETHEUS_REPORTER(reporter), nullptr);

  return VEK_WEB_SERVER(g_object_new(VEK_WEB_TYPE_SERVER, "reporter", reporter, nullptr));
}

gboolean vek_web_server_listen(VekWebServer *server, const char *address, guint port,
                               GError **error) {
  vek_return_val_if_fail(VEK_WEB_IS_SERVER(server), FALSE);
  vek_return_val_if_fail(port <= G_MAXUINT16, FALSE);
  vek_return_val_if_fail(error == NULL || *error == NULL, FALSE);

  if (!address)
    address = "127.0.0.1";
  g_autoptr(GSocketAddress) socket_address = g_inet_socket_address_new_from_string(address, port);
  if (!socket_address) {
    g_set_error(error, G_IO_ERROR, G_IO_ERROR_INVALID_ARGUMENT, "%s is no IP address", address);
    return FALSE;
  }
  g_autoptr(GSocket) socket = listen_on(socket_address, error);
  g_autoptr(GSocketAddress) bound = socket ? g_socket_get_local_address(socket, error) : nullptr;
  if (!bound)
    return FALSE;
  if (server->port == 0)
    server->port = g_inet_socket_address_get_port(G_INET_SOCKET_ADDRESS(bound));
  listen(server, socket);
  return TRUE;
}

gboolean vek_web_server_listen_unix(VekWebServer *server, const char *path, GError **error) {
  vek_return_val_if_fail(VEK_WEB_IS_SERVER(server), FALSE);
  vek_return_val_if_fail(path != NULL, FALSE);
  vek_return_val_if_fail(error == NULL || *error == NULL, FALSE);

  g_autoptr(GSocket) socket = listen_on_path(path, error);
  if (!socket)
    return FALSE;
  g_ptr_array_add(server->socket_files, socket_file_new(path));
  listen(server, socket);
  return TRUE;
}

void vek_web_server_attach(VekWebServer *server, SoupServer *soup_server, const char *path) {
  vek_return_if_fail(VEK_WEB_IS_SERVER(server));
  vek_return_if_fail(SOUP_IS_SERVER(soup_server));
  vek_return_if_fail(path == NULL || *path == '/');

  auto *attached = g_new(Attached, 1);
  *attached = {SOUP_SERVER(g_object_ref(soup_server)), g_strdup(path ? path : "/metrics"), server,
               false};
  g_ptr_array_add(server->attached, attached);
  soup_server_add_early_handler(soup_server, attached->path, on_headers, nullptr, nullptr);
  soup_server_add_handler(soup_server, attached->path, on_attached_request, attached, on_replaced);
}

void vek_web_server_allow_host(VekWebServer *server, const char *name) {
  vek_return_if_fail(VEK_WEB_IS_SERVER(server));
  vek_return_if_fail(name != NULL);

  g_hash_table_add(server->hosts, g_ascii_strdown(name, -1));
}

guint vek_web_server_get_port(VekWebServer *server) {
  vek_return_val_if_fail(VEK_WEB_IS_SERVER(server), 0);

  return server->port;
}
