#include "fixtures.hpp"

#include <gio/gio.h>

#include <unistd.h>

VekMetricRegistry *registry_new() {
  return VEK_METRIC_REGISTRY(g_object_new(VEK_TYPE_METRIC_REGISTRY, nullptr));
}

namespace {

struct NullReporter {
  GObject parent_instance;
};
struct NullReporterClass {
  GObjectClass parent_class;
};

void null_reporter_process_count(VekMetricReporter *, const gchar *, gchar **, const gchar *,
                                 gint64, gint64) {}
void null_reporter_flush(VekMetricReporter *) {}

void null_reporter_reporter_init(VekMetricReporterInterface *iface) {
  iface->process_count = null_reporter_process_count;
  iface->flush = null_reporter_flush;
}

G_DEFINE_TYPE_WITH_CODE(NullReporter, null_reporter, G_TYPE_OBJECT,
                        G_IMPLEMENT_INTERFACE(VEK_TYPE_METRIC_REPORTER,
                                              null_reporter_reporter_init))
void null_reporter_class_init(NullReporterClass *) {}
void null_reporter_init(NullReporter *) {}

}  // namespace

VekMetricReporter *null_reporter_new() {
  return VEK_METRIC_REPORTER(g_object_new(null_reporter_get_type(), nullptr));
}

void settle_main_context() {
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
}

NullFolder::NullFolder(const char *name)
    : path(g_dir_make_tmp(nullptr, nullptr)), file(std::string(path) + "/" + name) {
  if (symlink("/dev/null", file.c_str()) != 0)
    g_error("Cannot link %s", file.c_str());
}

NullFolder::~NullFolder() {
  unlink(file.c_str());
  rmdir(path);
  g_free(path);
}

Server::Server(bool reads) : reads(reads), listener(g_socket_listener_new()) {
  port = g_socket_listener_add_any_inet_port(listener, nullptr, nullptr);
  g_thread_unref(g_thread_new("server", serve, this));
}

void Server::start_reading() {
  reads = true;
  reads.notify_one();
}

gpointer Server::serve(gpointer data) {
  auto *self = static_cast<Server *>(data);
  auto *connection = g_socket_listener_accept(self->listener, nullptr, nullptr, nullptr);
  auto *socket = g_socket_connection_get_socket(connection);
  self->reads.wait(false);
  static thread_local char buffer[1 << 16];
  gssize n_read;
  while ((n_read = g_socket_receive(socket, buffer, sizeof buffer, nullptr, nullptr)) > 0)
    self->n_bytes += n_read;
  self->ended = true;
  return nullptr;
}
