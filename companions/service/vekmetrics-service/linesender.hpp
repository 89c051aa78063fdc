#pragma once

#include "linequeue.hpp"
#include "serverconnection.hpp"

namespace vekin {

// Brings lines to a server that comes and goes, and tells the log of each outage: a time in which
// there is no connection, or lines are dropped because the server does not keep up.
struct LineSender {
  LineQueue queue;
  ServerConnection connection;
  void (*on_changed)(GObject *owner);  // called when the connection has changed something

  bool in_outage;
  gint64 outage_start;
  guint64 dropped_before;  // how many lines, when it began

  // The host and the owner, which holds this, must last until the connection is closed.
  void open(const char *host, guint16 port, GObject *owner, void (*on_changed)(GObject *owner));

  // Adds a line, which ends in its only line feed.
  void push(const GString *line);

  // Sends what waits for as long as the kernel takes it at once; the rest follows by itself.
  void flush();

  // Whether a connection is being made, or lines are on their way or wait for a connection.
  bool is_busy() const;
};
static_assert(ZeroFillable<LineSender>);

}  // namespace vekin
