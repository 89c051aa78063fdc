// Tests of the queue of lines, which the library hides, against random uses.

#include "vekmetrics-service/linequeue.hpp"

#include <string.h>

#include "support/fixture.h"

using vekin::LineQueue;

namespace {

// A queue, and a server that is sent what it holds. A line is its number, a filling and a line
// feed.
struct Scene {
  LineQueue queue;
  guint n_pushed;
  guint last_number;  // on this connection
  GString *unread;    // of this connection, less than a line
};

void push(Scene *scene, guint length) {
  g_autoptr(GString) line = g_string_new(nullptr);
  g_string_printf(line, "%u ", ++scene->n_pushed);
  for (guint i = 0; i < length; i++)
    g_string_append_c(line, 'x');
  g_string_append_c(line, '\n');
  scene->queue.push(line);
}

// Each connection gets whole lines in their order, whatever was sent or dropped meanwhile.
void receive(Scene *scene, const char *text, gsize length) {
  g_string_append_len(scene->unread, text, static_cast<gssize>(length));
  while (char *feed = strchr(scene->unread->str, '\n')) {
    char *end = nullptr;
    guint number = static_cast<guint>(g_ascii_strtoull(scene->unread->str, &end, 10));
    g_assert_cmpuint(number, >, scene->last_number);
    g_assert_cmpint(*end, ==, ' ');
    g_assert_cmpuint(strspn(end + 1, "x"), ==, static_cast<gsize>(feed - end) - 1);
    scene->last_number = number;
    g_string_erase(scene->unread, 0, feed + 1 - scene->unread->str);
  }
}

gsize send(Scene *scene, gsize length) {
  const char *text;
  gsize n_bytes = scene->queue.peek(&text);
  g_assert_cmpuint(n_bytes, <=, LineQueue::kChunkSize);
  n_bytes = MIN(n_bytes, length);
  if (n_bytes > 0) {
    receive(scene, text, n_bytes);
    scene->queue.advance(n_bytes);
  }
  return n_bytes;
}

void reconnect(Scene *scene) {
  scene->queue.rewind();
  scene->last_number = 0;
  g_string_truncate(scene->unread, 0);
}

}  // namespace

TEST(lines_stay_whole_and_in_order_whatever_happens) {
  for (guint32 seed = 0; seed < 30; seed++) {
    g_autoptr(GRand) rand = g_rand_new_with_seed(seed);
    Scene scene = {};
    scene.unread = g_string_new(nullptr);
    scene.queue.max_lines = static_cast<guint>(g_rand_int_range(rand, 1, 300));
    for (int i = 0; i < 2000; i++) {
      auto below = [&](gint32 end) { return static_cast<guint>(g_rand_int_range(rand, 0, end)); };
      switch (below(20)) {
      case 0:
        if (below(5) == 0)
          reconnect(&scene);
        break;
      case 1:
        if (below(5) == 0)
          scene.queue.set_max_lines(1 + below(300));
        break;
      case 2: push(&scene, below(below(10) == 0 ? 200000 : 2000)); break;
      case 3:
      case 4: send(&scene, below(20000)); break;
      default: push(&scene, below(2000));
      }
      const LineQueue &queue = scene.queue;
      g_assert_cmpuint(queue.n_lines, <=, queue.max_lines);
      g_assert_cmpuint(queue.n_lines + queue.n_sent + queue.n_dropped, ==, scene.n_pushed);
    }

    // The newest is the last to go.
    scene.queue.set_max_lines(300);
    push(&scene, 10);
    while (send(&scene, G_MAXSIZE) > 0)
      ;
    g_assert_cmpuint(scene.last_number, ==, scene.n_pushed);
    g_assert_cmpuint(scene.unread->len, ==, 0);
    g_assert_cmpuint(scene.queue.n_lines, ==, 0);
    scene.queue.clear();
    g_string_free(scene.unread, TRUE);
  }
}

TEST(the_oldest_of_which_nothing_was_sent_goes) {
  static const struct {
    gsize n_sent;
    const char *left;
    guint n_sent_lines;
  } rows[] = {
      {0, "2 x\n3 x\n4 x\n", 0}, {2, "x\n3 x\n4 x\n", 0},  // the rest of the first; the second goes
      {4, "2 x\n3 x\n4 x\n", 1},                           // the first was sent, none goes
      {6, "x\n3 x\n4 x\n", 1},                             // nor here
      {11, "\n4 x\n", 2},
  };
  for (const auto &row : rows) {
    Scene scene = {};
    scene.unread = g_string_new(nullptr);
    scene.queue.max_lines = 3;
    for (int i = 0; i < 3; i++)
      push(&scene, 1);
    send(&scene, row.n_sent);
    push(&scene, 1);

    g_autoptr(GString) left = g_string_new(nullptr);
    const char *text;
    guint64 n_sent = scene.queue.n_sent;
    while (gsize n_bytes = scene.queue.peek(&text)) {
      g_string_append_len(left, text, static_cast<gssize>(n_bytes));
      scene.queue.advance(n_bytes);
    }
    g_assert_cmpstr(left->str, ==, row.left);
    g_assert_cmpuint(n_sent, ==, row.n_sent_lines);
    scene.queue.clear();
    g_string_free(scene.unread, TRUE);
  }
}

TEST(a_waiting_line_takes_little_more_than_its_text) {
  for (guint length : {60, 22000}) {  // of the longer ones, two share a chunk
    Scene scene = {};
    scene.queue.max_lines = G_MAXUINT;
    gsize n_bytes = 0;
    gsize n_allocated = 0;
    for (guint i = 0; i < 1000000 / length; i++)
      push(&scene, length);
    for (GList *link = scene.queue.chunks.head; link; link = link->next) {
      auto *chunk = static_cast<LineQueue::Chunk *>(link->data);
      n_bytes += chunk->end;
      n_allocated += chunk->allocated + sizeof *chunk + sizeof *link;
      g_assert_cmpuint(chunk->end, <=, chunk->allocated);
      g_assert_cmpuint(chunk->end, <=, LineQueue::kChunkSize);
    }
    g_assert_cmpuint(n_bytes, >, 900000);
    g_assert_cmpuint(10 * n_allocated, <=, 12 * n_bytes);
    scene.queue.clear();
  }
}

TEST(a_chunk_may_be_full_to_the_last_byte) {
  Scene scene = {};
  scene.queue.max_lines = G_MAXUINT;
  for (int i = 0; i < 64; i++) {
    g_autofree char *filling = g_strnfill(1023, 'x');
    g_autoptr(GString) line = g_string_new(filling);
    g_string_append_c(line, '\n');
    scene.queue.push(line);
  }
  const char *text;
  g_assert_cmpuint(scene.queue.peek(&text), ==, LineQueue::kChunkSize);
  scene.queue.clear();
}
