#pragma once

#include "common/internal.hpp"

namespace vekin {

// Lines that wait to be sent, joined in chunks so that one costs hardly more than its text.
//
// What is handed over to the connection stays here until its whole chunk has gone: after a failure
// the chunk is sent again from its beginning.
struct LineQueue {
  static constexpr gsize kChunkSize = 64 * 1024;

  struct Chunk {
    char *text;
    gsize allocated;
    gsize start;  // the text before it was dropped or sent
    gsize sent;   // what is before it was taken by the connection that is there
    gsize end;
    guint n_lines;  // from the start
  };

  GQueue chunks;  // the oldest at the head; only that one is ever sent in part
  guint n_lines;
  guint max_lines;  // at least 1
  guint64 n_sent;
  guint64 n_dropped;

  // Adds a line, which ends in its only line feed. Beyond the limit the oldest lines go.
  void push(const GString *line);

  void set_max_lines(guint lines);

  // What is to be sent next, at most kChunkSize bytes; 0 if there is nothing.
  gsize peek(const char **text);

  // Takes note that as many bytes of that were sent.
  void advance(gsize n_bytes);

  // Takes note that the connection is gone.
  void rewind();

  // Frees the lines; nothing may follow.
  void clear();

private:
  bool make_room();
};
static_assert(ZeroFillable<LineQueue>);

}  // namespace vekin
