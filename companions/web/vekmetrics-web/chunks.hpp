#pragma once

// A response that is sent chunk by chunk, each when the one before has been sent.

#include <libsoup/soup.h>

namespace vekin::web {

struct Chunks {
  SoupServerMessage *message;
  bool is_sending;  // the last chunk has not been sent
  void (*on_sent)(Chunks *chunks);
  void (*on_closed)(Chunks *chunks);  // the response is over, or the client has gone
  gpointer owner;
};

// Sets the headers of a response whose length is not known.
void chunks_announce(SoupServerMessage *message);

// Begins a response. Nothing is sent before the first chunk but the headers.
void chunks_begin(Chunks &chunks, SoupServerMessage *message);

void chunks_send(Chunks &chunks, GBytes *chunk);

// Ends the response after the chunks so far.
void chunks_end(Chunks &chunks);

// Lets go of the message.
void chunks_clear(Chunks &chunks);

}  // namespace vekin::web
