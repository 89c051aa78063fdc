/* Linked into a program, it runs the registry's passes as often as the main loop can, rather than
 * every 60 seconds. */

#include <glib.h>

guint g_timeout_add_seconds(guint interval, GSourceFunc function, gpointer data) {
  return g_timeout_add(interval / 60, function, data);
}
