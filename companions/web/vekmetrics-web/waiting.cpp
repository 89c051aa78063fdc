#include "waiting.hpp"

#include "common/internal.hpp"

namespace vekin::web {

struct Waiting {
  Work work;
  gpointer data;
  GPtrArray *entries;  // the first has waited for longest
  GSource *turn;       // while there are any
};

namespace {

struct Entry {
  Waiting *waiting;
  Request request;
};

}  // namespace

static void free_entry(gpointer data) {
  auto *entry = as<Entry>(data);
  auto &request = entry->request;
  g_signal_handlers_disconnect_by_data(request.message, entry);
  g_object_unref(request.message);
  g_clear_pointer(&request.page, page_unref);
  g_free(entry);
}

static Request &get_request(const Waiting *self, guint i) {
  return as<Entry>(self->entries->pdata[i])->request;
}

// Lets a message go on with the answer that it has.
static void release(Waiting *self, guint i) {
  g_autoptr(SoupServerMessage) message =
      SOUP_SERVER_MESSAGE(g_object_ref(get_request(self, i).message));
  g_ptr_array_remove_index(self->entries, i);
  soup_server_message_unpause(message);
}

static void on_disconnected(SoupServerMessage *, gpointer data) {
  g_ptr_array_remove(as<Entry>(data)->waiting->entries, data);
}

static gboolean on_turn(gpointer data) {
  auto *self = as<Waiting>(data);
  if (self->entries->len > 0 && self->work(get_request(self, 0), self->data))
    release(self, 0);
  if (self->entries->len > 0)
    return G_SOURCE_CONTINUE;
  g_clear_pointer(&self->turn, g_source_unref);
  return G_SOURCE_REMOVE;
}

Waiting *waiting_new(Work work, gpointer data) {
  auto *self = g_new(Waiting, 1);
  *self = {work, data, g_ptr_array_new_with_free_func(free_entry), nullptr};
  return self;
}

void waiting_free(Waiting *self) {
  if (self->turn) {
    g_source_destroy(self->turn);
    g_source_unref(self->turn);
  }
  for (guint i = self->entries->len; i-- > 0;) {
    soup_server_message_set_status(get_request(self, i).message, SOUP_STATUS_SERVICE_UNAVAILABLE,
                                   nullptr);
    release(self, i);
  }
  g_ptr_array_unref(self->entries);
  g_free(self);
}

void waiting_add(Waiting *self, SoupServerMessage *message, VekServicePrometheusFormat format,
                 Page *page, bool is_compressed) {
  auto *entry = g_new(Entry, 1);
  *entry = {self,
            {SOUP_SERVER_MESSAGE(g_object_ref(message)), format, is_compressed,
             page ? page_ref(page) : nullptr}};
  g_ptr_array_add(self->entries, entry);
  g_signal_connect(message, "disconnected", G_CALLBACK(on_disconnected), entry);
  soup_server_message_pause(message);
  if (self->turn)
    return;
  self->turn = g_idle_source_new();
  g_source_set_name(self->turn, "vekmetrics-web turn");
  g_source_set_priority(self->turn, G_PRIORITY_DEFAULT);
  g_source_set_callback(self->turn, on_turn, self, nullptr);
  g_source_attach(self->turn, g_main_context_get_thread_default());
}

}  // namespace vekin::web
