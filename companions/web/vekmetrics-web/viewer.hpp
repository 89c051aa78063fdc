#pragma once

// What a server shows to people: the page, the passes that it draws, and the events of new ones.

#include <vekmetrics-service/vekmetrics-service.h>

#include "connections.hpp"
#include "waiting.hpp"

namespace vekin::web {

struct Viewer;

// Keeps no passes at first.
Viewer *viewer_new(VekServicePrometheusReporter *reporter);

// Ends the responses that are not complete.
void viewer_free(Viewer *viewer);

// How many passes are kept. With 0 there is no page.
void viewer_set_history(Viewer *viewer, guint n_passes);

// Begins to serve, in the context that is thread-default now.
void viewer_start(Viewer *viewer, Connections *connections, Waiting *waiting);

bool viewer_has(Viewer *viewer, const char *path);

// Answers a GET or HEAD of a path that there is.
void viewer_serve(Viewer *viewer, SoupServerMessage *message, const char *path, GHashTable *query);

}  // namespace vekin::web
