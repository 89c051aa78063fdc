#pragma once

// A source that calls back once each time that g_source_set_ready_time(source, 0) makes it ready,
// which any thread may do.

#include <glib.h>

namespace vekin::web {

// Attached to the context that is thread-default now.
GSource *ready_source_new(const char *name, int priority, void (*on_ready)(gpointer data),
                          gpointer data);
void ready_source_free(GSource *source);

}  // namespace vekin::web
