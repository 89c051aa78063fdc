#include "readysource.hpp"

#include "common/internal.hpp"

namespace vekin::web {

namespace {

struct ReadySource {
  GSource source;
  void (*on_ready)(gpointer data);
  gpointer data;
};

}  // namespace

static gboolean dispatch(GSource *source, GSourceFunc, gpointer) {
  auto *self = as<ReadySource>(source);
  g_source_set_ready_time(source, -1);
  self->on_ready(self->data);
  return G_SOURCE_CONTINUE;
}

GSource *ready_source_new(const char *name, int priority, void (*on_ready)(gpointer data),
                          gpointer data) {
  static GSourceFuncs functions = {nullptr, nullptr, dispatch, nullptr, nullptr, nullptr};
  auto *source = g_source_new(&functions, sizeof(ReadySource));
  g_source_set_name(source, name);
  g_source_set_priority(source, priority);
  as<ReadySource>(source)->on_ready = on_ready;
  as<ReadySource>(source)->data = data;
  g_source_attach(source, g_main_context_get_thread_default());
  return source;
}

void ready_source_free(GSource *source) {
  g_source_destroy(source);
  g_source_unref(source);
}

}  // namespace vekin::web
