#pragma once

/* A server that takes lines. It uses plain sockets in the thread of the test: nothing has to wait
 * for it, and its calls do not fail. */

#include <glib.h>

G_BEGIN_DECLS

typedef struct _LineSink LineSink;

/* Listens on a free port. */
LineSink *line_sink_new(void);
guint line_sink_get_port(LineSink *sink);

/* Accepts further connections, until it has had so many, and closes its side of all. */
void line_sink_hang_up(LineSink *sink, guint n_connections);

/* Accepts the others, reads all until the other side ends them, and frees the sink.
 *
 * Returns: the whole lines, each once */
char *line_sink_end(LineSink *sink, guint n_connections);

G_END_DECLS
