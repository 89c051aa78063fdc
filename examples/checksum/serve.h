#pragma once

/* The figures over HTTP, for Prometheus. */

#include <vekmetrics-web/vekmetrics-web.h>

/* Serves the session's figures on this machine and prints the address; a port of 0 takes a free
 * one. Returns NULL with an error if it cannot listen. */
VekWebServer *serve(VekServiceSession *session, guint port, GError **error);
