#pragma once

#include <glib-object.h>

namespace vekin {

// A weak reference on the heap, for tables and callbacks.
inline GWeakRef *weak_ref_new(gpointer object) {
  auto *weak_ref = g_new(GWeakRef, 1);
  g_weak_ref_init(weak_ref, object);
  return weak_ref;
}

inline void weak_ref_free(gpointer data) {
  auto *weak_ref = static_cast<GWeakRef *>(data);
  g_weak_ref_clear(weak_ref);
  g_free(weak_ref);
}

// A new reference, or NULL.
inline gpointer weak_ref_get(gpointer data) {
  return g_weak_ref_get(static_cast<GWeakRef *>(data));
}

}  // namespace vekin
