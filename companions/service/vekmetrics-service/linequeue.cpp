#include "linequeue.hpp"

#include <string_view>

#include <string.h>

using vekin::LineQueue;
using Chunk = vekin::LineQueue::Chunk;

static void resize(Chunk *chunk, gsize size) {
  chunk->allocated = size;
  chunk->text = static_cast<char *>(g_realloc(chunk->text, size));
}

static Chunk *chunk_new(gsize size) {
  auto *chunk = g_new0(Chunk, 1);
  resize(chunk, size);
  return chunk;
}

static void chunk_free(gpointer data) {
  auto *chunk = vekin::as<Chunk>(data);
  g_free(chunk->text);
  g_free(chunk);
}

static guint count_lines(const char *text, const char *end) {
  guint n_lines = 0;
  for (; text < end; text++)
    n_lines += *text == '\n';
  return n_lines;
}

// The position behind the line that a position is in, or before.
static gsize find_next_line(const Chunk *chunk, gsize position) {
  auto *feed = memchr(chunk->text + position, '\n', chunk->end - position);
  return static_cast<gsize>(static_cast<char *>(feed) - chunk->text) + 1;
}

// Cuts the chunk in two, between lines.
static void split(GQueue *chunks, GList *link, gsize position) {
  auto *chunk = vekin::as<Chunk>(link->data);
  gsize length = chunk->end - position;
  Chunk *rest = chunk_new(length);
  memcpy(rest->text, chunk->text + position, length);
  rest->end = length;
  rest->n_lines = count_lines(rest->text, rest->text + length);
  chunk->n_lines -= rest->n_lines;
  chunk->end = position;
  g_queue_insert_after(chunks, link, rest);
}

// Lets lines go: those that were sent already, though not their whole chunk, or else the oldest of
// which nothing was sent. A line that was sent in part must stay, or the next would be joined to
// that part. False if there is no other than that. Called while there are lines.
bool LineQueue::make_room() {
  GList *link = chunks.head;
  auto *chunk = as<Chunk>(link->data);
  if (chunk->sent > chunk->start) {
    const char *first = chunk->text + chunk->start;
    auto feed = std::string_view(first, chunk->sent - chunk->start).rfind('\n');
    if (feed != std::string_view::npos) {
      guint n_gone = count_lines(first, first + feed + 1);
      chunk->start += feed + 1;
      chunk->n_lines -= n_gone;
      n_lines -= n_gone;
      n_sent += n_gone;
      return true;
    }
    gsize next = find_next_line(chunk, chunk->sent);
    if (next < chunk->end)
      split(&chunks, link, next);
    link = link->next;
    if (!link)
      return false;
    chunk = as<Chunk>(link->data);
  }

  chunk->start = chunk->sent = find_next_line(chunk, chunk->start);
  chunk->n_lines--;
  n_lines--;
  n_dropped++;
  if (chunk->n_lines == 0) {
    chunk_free(chunk);
    g_queue_delete_link(&chunks, link);
  }
  return true;
}

void LineQueue::push(const GString *line) {
  while (n_lines >= max_lines)
    if (!make_room()) {
      n_dropped++;
      return;
    }

  auto *chunk = as<Chunk>(g_queue_peek_tail(&chunks));
  if (!chunk || chunk->end + line->len > kChunkSize) {
    if (chunk)
      resize(chunk, chunk->end);  // no more is added to it
    chunk = chunk_new(MAX(line->len, 1024));
    g_queue_push_tail(&chunks, chunk);
  } else if (chunk->end + line->len > chunk->allocated) {
    resize(chunk, MIN(kChunkSize, 2 * (chunk->end + line->len)));
  }
  memcpy(chunk->text + chunk->end, line->str, line->len);
  chunk->end += line->len;
  chunk->n_lines++;
  n_lines++;
}

void LineQueue::set_max_lines(guint lines) {
  max_lines = lines;
  while (n_lines > max_lines)  // which is at least one, so that there is another to go
    make_room();
}

gsize LineQueue::peek(const char **text) {
  auto *chunk = as<Chunk>(g_queue_peek_head(&chunks));
  if (!chunk)
    return 0;
  *text = chunk->text + chunk->sent;
  return MIN(chunk->end - chunk->sent, kChunkSize);
}

void LineQueue::advance(gsize n_bytes) {
  auto *chunk = as<Chunk>(g_queue_peek_head(&chunks));
  chunk->sent += n_bytes;
  if (chunk->sent < chunk->end)
    return;
  n_lines -= chunk->n_lines;
  n_sent += chunk->n_lines;
  chunk_free(g_queue_pop_head(&chunks));
}

void LineQueue::rewind() {
  if (auto *chunk = as<Chunk>(g_queue_peek_head(&chunks)))
    chunk->sent = chunk->start;
}

void LineQueue::clear() {
  g_queue_clear_full(&chunks, chunk_free);
}
