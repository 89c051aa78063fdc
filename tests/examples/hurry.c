/* Linked into a program, it runs the registry's passes as often as the main loop can, rather than
 * every 60 seconds. All else comes first: passes that take longer than they are apart would leave
 * the program no time for its own work. */

#include <glib.h>

guint g_timeout_add_seconds(guint interval, GSourceFunc function, gpointer data) {
  return g_timeout_add_full(G_PRIORITY_LOW, interval / 60, function, data, NULL);
}
