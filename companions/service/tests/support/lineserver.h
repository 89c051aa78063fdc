#pragma once

/* A server on loopback that takes lines, and what a test needs around it. Nothing here waits for
 * time: delays of 750 ms and more end when the test says so. */

#include <gio/gio.h>
#include <vekmetrics-service/vekmetrics-service.h>
#include <vekmetrics/vekmetrics.h>

/* 1,700,000,000 s on the wire. */
#define TIMESTAMP G_GINT64_CONSTANT(1700000000999999)

/* Runs the default context until the condition holds; the limit only ends a test that hangs. */
#define run_until(condition)                                              \
  G_STMT_START {                                                          \
    g_autoptr(GSource) guard = g_timeout_source_new_seconds(100);         \
    g_source_set_callback(guard, on_guard, (gpointer)(#condition), NULL); \
    g_source_attach(guard, NULL);                                         \
    while (!(condition))                                                  \
      g_main_context_iteration(NULL, TRUE);                               \
    g_source_destroy(guard);                                              \
  }                                                                       \
  G_STMT_END
gboolean on_guard(gpointer condition);

/* Runs the default context for as long as anything is ready. */
void run_until_idle(void);

typedef struct {
  GSocket *reservation;      /* of the port, which nobody else gets while it does not listen */
  GSocketListener *listener; /* NULL while it does not listen */
  char *address;
  guint port;
  GSocketConnection *connection; /* NULL until it is accepted */
  GString *received;             /* over all connections */
  gboolean ended;                /* whether the other side closed the connection */
  gboolean reading;
  char buffer[65536];
} LineServer;

/* Listens at a free port; NULL if the address is not to be had on this machine. */
LineServer *line_server_new(const char *address);
void line_server_free(LineServer *server);
G_DEFINE_AUTOPTR_CLEANUP_FUNC(LineServer, line_server_free)

/* Stops to listen, so that connections are refused, and begins again at the same port. */
void line_server_stop(LineServer *server);
void line_server_start(LineServer *server);

/* Accepts a connection, and reads nothing yet. */
void line_server_accept(LineServer *server);

/* Begins to read what comes. */
void line_server_read(LineServer *server);

/* Reads exactly so many bytes, or what one read gives if that is less, and no more. */
void line_server_read_once(LineServer *server, gsize n_bytes);

/* Closes the connection, in order or by a reset. */
void line_server_close(LineServer *server);
void line_server_reset(LineServer *server);

/* Reads until so many bytes were received, and compares and forgets them. */
void assert_received(LineServer *server, const char *expected);

/* The delay that was begun last, in milliseconds, or 0 if none is under way; and its end. */
guint get_delay(void);
void end_delay(void);

/* How many writes the companion has made, and the largest, since the last reset. */
extern guint n_writes;
extern gsize largest_write;

/* What the next write fails with, and then NULL again. */
extern GError *next_write_error;

void process_count_of(VekMetricReporter *reporter, const char *name, char **dimensions,
                      const char *unit, gint64 count);
void process_count(VekMetricReporter *reporter, const char *name, gint64 count);
void process_samples(VekMetricReporter *reporter, const char *name, char **dimensions,
                     const char *unit, VekMetricSnapshot *snapshot);
void flush(VekMetricReporter *reporter);
void send_count(VekMetricReporter *reporter, const char *name, gint64 count);
gboolean is_connected(VekMetricReporter *reporter);
gboolean is_busy(VekMetricReporter *reporter);
void assert_lines(VekMetricReporter *reporter, guint queued, guint64 sent, guint64 dropped);
/* Connects to a server that is there, which reads. */
void meet(VekMetricReporter *reporter, LineServer *server);
VekMetricReporter *connect_reporter(LineServer *server, const char *prefix);
void assert_outage(LineServer *server, const char *reason);
void assert_outage_over(LineServer *server, guint seconds, guint n_dropped);
