#pragma once

/* A server in the main loop of a test, and clients that talk to it by sockets. */

#include <vekmetrics-web/vekmetrics-web.h>

#include "support/fixture.h"

G_BEGIN_DECLS

typedef struct {
  VekServicePrometheusReporter *reporter;
  VekWebServer *server;
} Served;

Served set_up(void);
void listen_locally(Served *served);

/* One that listens, after a pass over so many gauges. */
Served set_up_listening(int n_metrics);
void tear_down(Served *served);
G_DEFINE_AUTO_CLEANUP_CLEAR_FUNC(Served, tear_down)

/* Brings a value, or a range, as of a pass over metrics; and ends the pass. */
void bring(Served *served, const char *name, char **dimensions, const char *unit, double value);
void bring_range(Served *served, const char *name, int id, gint64 start, gint64 end);
void end_pass(Served *served);

/* Runs a pass over so many gauges. */
void pass(Served *served, int n_metrics);

/* Runs the main loop until it has nothing to do. */
void settle(void);

GSocketAddress *get_address(Served *served);

/* Connects and waits until the server has accepted. */
GSocket *connect_to(Served *served);
GSocket *connect_to_address(GSocketAddress *address);

/* Whether the other side has ended a connection. */
gboolean has_ended(GSocket *socket);

/* Asks, from a thread, and waits until the connection ends. Returns everything that came, with a
 * NUL behind it. */
GByteArray *ask(GSocketAddress *address, const char *request);

/* A server of the program's own on loopback, and its address. */
SoupServer *other_server_new(GSocketAddress **address);

/* Asks for a path, and compares the beginning of the answer. */
void assert_answer(GSocketAddress *address, const char *path, const char *expected);

/* Sends a request, its lines between "|", and returns the answer's status and headers but for the
 * date, also between "|"; and its body. */
char *request(Served *served, const char *lines, GBytes **body);

void assert_status(Served *served, const char *lines, const char *status);

/* Compares bytes with a text. */
void assert_bytes(GBytes *found, const char *expected);
GBytes *decompress(GBytes *compressed);

/* Asks for a path on a connection, or on a new one. */
void send_request(GSocket *socket, const char *path);
GSocket *send_to(Served *served, const char *path);

/* What has come, without the headers. */
char *receive(GSocket *socket);

/* The server's source of a name; NULL if it has none. */
GSource *find_source(const char *name);

/* Runs that source, for which a program would wait. */
void run_source(const char *name);

G_END_DECLS
