#pragma once

#include "common/internal.hpp"

#include <gio/gio.h>

namespace vekin {

// A TCP connection that is made anew whenever it breaks, until it is closed.
struct ServerConnection {
  // Set before it is opened. The owner is held while a connection is being made and while a send
  // waits for room. Nothing is called after the connection was closed.
  const char *host;
  guint16 port;
  GObject *owner;
  void (*on_ready)(gpointer user_data);                     // it is there, or has room again
  void (*on_lost)(gpointer user_data, const char *reason);  // or could not be made
  gpointer user_data;

  GCancellable *connecting;   // set while a connection is being made
  GSocketConnection *stream;  // set while it is there
  GSource *readable;          // set with it
  GSource *writable;          // set while a send waits for room
  GSource *retry;             // set while it waits to be made anew
  guint n_failures;           // since it last proved good

  void open();
  void close();

  // Takes note that the connection has lasted: after the next failure it is made anew soon.
  void prove_good();

  // Sends what the kernel takes at once. When there is room for the rest, on_ready is called.
  //
  // Returns how many bytes that were: 0 if there was no room, or if the connection broke, for which
  // on_lost has been called then.
  gsize send(const char *text, gsize length);
};
static_assert(ZeroFillable<ServerConnection>);

}  // namespace vekin
