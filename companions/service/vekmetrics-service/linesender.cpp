#include "linesender.hpp"

using vekin::LineSender;

// False if one has begun already.
static bool begin_outage(LineSender *self, guint64 dropped_before) {
  if (self->in_outage)
    return false;
  self->in_outage = true;
  self->outage_start = g_get_monotonic_time();
  self->dropped_before = dropped_before;
  return true;
}

static void end_outage(LineSender *self) {
  if (!self->in_outage)
    return;
  self->in_outage = false;
  gint64 seconds = (g_get_monotonic_time() - self->outage_start) / G_USEC_PER_SEC;
  vek_log(G_LOG_LEVEL_MESSAGE,
          "%s:%u takes lines again after %" G_GINT64_FORMAT " s; %" G_GUINT64_FORMAT
          " lines were dropped",
          self->connection.host, self->connection.port, seconds,
          self->queue.n_dropped - self->dropped_before);
}

static void send_lines(LineSender *self) {
  const char *text;
  while (self->connection.stream && !self->connection.writable) {
    gsize length = self->queue.peek(&text);
    if (length == 0)
      break;
    if (gsize n_sent = self->connection.send(text, length))
      self->queue.advance(n_sent);
  }
  if (self->connection.stream && self->queue.n_lines == 0)
    end_outage(self);
}

static void on_ready(gpointer user_data) {
  auto *self = vekin::as<LineSender>(user_data);
  send_lines(self);
  self->on_changed(self->connection.owner);
}

static void on_lost(gpointer user_data, const char *reason) {
  auto *self = vekin::as<LineSender>(user_data);
  self->queue.rewind();
  if (begin_outage(self, self->queue.n_dropped))
    vek_warning("No connection to %s:%u, lines wait for it: %s", self->connection.host,
                self->connection.port, reason);
  self->on_changed(self->connection.owner);
}

void LineSender::open(const char *host, guint16 port, GObject *owner,
                      void (*on_changed)(GObject *owner)) {
  this->on_changed = on_changed;
  connection.host = host;
  connection.port = port;
  connection.owner = owner;
  connection.on_ready = on_ready;
  connection.on_lost = on_lost;
  connection.user_data = this;
  connection.open();
}

void LineSender::push(const GString *line) {
  if (queue.n_lines >= queue.max_lines)
    send_lines(this);  // a pass may have more lines than may wait
  guint64 dropped_before = queue.n_dropped;
  queue.push(line);
  if (queue.n_dropped > dropped_before && begin_outage(this, dropped_before))
    vek_warning("More than %u lines wait for %s:%u, the oldest are dropped", queue.max_lines,
                connection.host, connection.port);
}

void LineSender::flush() {
  connection.prove_good();
  send_lines(this);
}

bool LineSender::is_busy() const {
  return connection.connecting || connection.writable || (connection.retry && queue.n_lines > 0);
}
