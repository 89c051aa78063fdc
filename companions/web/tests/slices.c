/* Tests of the order in which a VekWebServer sends slices of the passes to several clients. */

#include "served.h"
#include "support/tsan-tasks.h"

#include <string.h>

typedef struct {
  GSocket *socket;
  gsize n_received;
  gboolean has_all;
} Reader;

static void read_more(Reader *reader) {
  char buffer[1 << 16];
  gssize n_read;
  while ((n_read = g_socket_receive_with_blocking(reader->socket, buffer, sizeof buffer, FALSE,
                                                  NULL, NULL)) > 0)
    reader->n_received += (gsize)n_read;
  reader->has_all = n_read == 0;
}

/* Lets clients ask for the passes at once, and read what comes until one has all of it. Returns the
 * turns of the main loop that this takes, and what each has got. */
static guint read_passes(Served *served, Reader *readers, guint n_readers) {
  for (guint i = 0; i < n_readers; i++)
    readers[i] = (Reader){connect_to(served), 0, FALSE};
  for (guint i = 0; i < n_readers; i++)
    send_request(readers[i].socket, "/vars.json");
  guint n_turns = 0;
  for (gboolean is_over = FALSE; !is_over; n_turns++) {
    g_main_context_iteration(NULL, TRUE);
    for (guint i = 0; i < n_readers; i++) {
      read_more(&readers[i]);
      is_over |= readers[i].has_all;
    }
  }
  for (guint i = 0; i < n_readers; i++)
    g_object_unref(readers[i].socket);
  return n_turns;
}

TEST(clients_take_turns) {
  g_auto(Served) served = set_up_listening(10000);
  Reader alone, readers[10];
  guint n_turns = read_passes(&served, &alone, 1);
  g_assert_cmpuint(read_passes(&served, readers, 10), >, 5 * n_turns); /* one slice in each */
  for (guint i = 0; i < 10; i++)
    g_assert_cmpuint(readers[i].n_received, >, alone.n_received / 2);
}

static gboolean on_turn(G_GNUC_UNUSED gpointer data) {
  return G_SOURCE_CONTINUE;
}

TEST(passes_are_sent_when_the_program_has_nothing_else_to_do) {
  g_auto(Served) served = set_up_listening(1000);
  Reader reader = {connect_to(&served), 0, FALSE};
  g_autoptr(GSource) busy = g_idle_source_new();
  g_source_set_priority(busy, G_PRIORITY_HIGH_IDLE);
  g_source_set_callback(busy, on_turn, NULL, NULL);
  g_source_attach(busy, NULL);
  send_request(reader.socket, "/vars.json");
  for (int i = 0; i < 100; i++)
    g_main_context_iteration(NULL, TRUE);
  read_more(&reader);
  g_assert_cmpuint(reader.n_received, <, 10000); /* no more than headers */
  g_source_destroy(busy);
  while (!reader.has_all) {
    g_main_context_iteration(NULL, TRUE);
    read_more(&reader);
  }
  g_assert_cmpuint(reader.n_received, >, 10000);
  g_object_unref(reader.socket);
}
